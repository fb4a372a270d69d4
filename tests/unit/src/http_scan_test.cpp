#include "src/norvane_transmit_service/http_scan.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Kind = HttpStep::Kind;

// What a reader makes of one buffer: the URLs it answers, how it ends, and what it leaves behind.
struct Outcome {
    std::vector<std::string> urls;
    Kind end = Kind::wait;
    std::string left;

    bool operator==(const Outcome&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Outcome& outcome) {
    for (const std::string& url : outcome.urls) {
        out << '[' << url << "] ";
    }
    return out << "end " << static_cast<int>(outcome.end) << " left " << outcome.left.size() << " {"
               << outcome.left.substr(0, 200) << '}';
}

Outcome scan(const std::string& bytes) {
    HttpScanner scanner(bytes);
    Outcome outcome;
    std::size_t dropped = 0;
    for (;;) {
        const HttpStep step = scanner.next();
        dropped += step.drop;
        if (step.kind != Kind::request) {
            outcome.end = step.kind;
            outcome.left = bytes.substr(dropped);
            return outcome;
        }
        outcome.urls.emplace_back(step.url);
    }
}

// The whole buffer stays, and nothing is answered.
Outcome waits(const std::string& bytes) {
    return {{}, Kind::wait, bytes};
}
Outcome answers(std::vector<std::string> urls, const std::string& left = "") {
    return {std::move(urls), Kind::wait, left};
}
Outcome ends(Kind kind, const std::string& left) {
    return {{}, kind, left};
}

// What ends a request without header fields.
std::string version() {
    return " HTTP/1.1\r\n\r\n";
}

}  // namespace

TEST(HttpScan, ARequestIsServedWhenItsHeadHasEnded) {
    const std::string request = "GET /a HTTP/1.1\r\nHost: x\r\n\r\n";
    for (std::size_t length = 0; length < request.size(); ++length) {
        EXPECT_EQ(scan(request.substr(0, length)), waits(request.substr(0, length)));
    }
    EXPECT_EQ(scan(request), answers({"/a"}));
    EXPECT_EQ(scan("GET /" + version()), answers({"/"}));
    EXPECT_EQ(scan("POST /b" + version()), answers({"/b"}));
}

TEST(HttpScan, RequestsInOneBufferAreServedInOrder) {
    const std::string first = "POST /a" + version();
    EXPECT_EQ(scan(first + "GET /b" + version()), answers({"/a", "/b"}));
    EXPECT_EQ(scan("GET /b" + version() + first), answers({"/b", "/a"}));
}

TEST(HttpScan, AFollowingRequestWaitsForItsEnd) {
    const std::string first = "GET /a" + version();
    EXPECT_EQ(scan(first + "GET /b HT"), answers({"/a"}, "GET /b HT"));
    EXPECT_EQ(scan(first + "GET /b HTTP/1.1\r\nHo"),
              answers({"/a"}, "1.1\r\n\r\nGET /b HTTP/1.1\r\nHo"));
    EXPECT_EQ(scan("1.1\r\n\r\nGET /b HTTP/1.1\r\nHost: x\r\n\r\n"), answers({"/b"}));
}

TEST(HttpScan, TheBeginningOfAMethodWordIsKept) {
    EXPECT_EQ(scan("GET /a" + version() + "PO"), answers({"/a"}, "\n\r\nPO"));
    EXPECT_EQ(scan("POST /a" + version() + "0123456789"), answers({"/a"}, "56789"));
    EXPECT_EQ(scan("xxxxxx\r\n\r\nxGET"), answers({}, "\nxGET"));
}

TEST(HttpScan, WhatIsNoRequestIsPassedOver) {
    EXPECT_EQ(scan("xxGET /a" + version()), answers({"/a"}));
    EXPECT_EQ(scan("FORGET /a" + version()), answers({"/a"}));
    EXPECT_EQ(scan("PUT /a" + version()), answers({}));
    EXPECT_EQ(scan("get /a" + version()), answers({}));
    EXPECT_EQ(scan("POST /a HTTP/1.1\r\nX: y\r\n\r\nbody\r\n"), answers({"/a"}));
    EXPECT_EQ(scan("GET /abcdefghij\r\n\r\n"), waits("GET /abcdefghij\r\n\r\n"));
    EXPECT_EQ(scan("junk GET /abcdefghij\r\n\r\n"), answers({}, "GET /abcdefghij\r\n\r\n"));
}

TEST(HttpScan, AVersionOutsideItsRequestIsInvalid) {
    for (const std::string& bytes :
         {" HTTP/1.1 GET /a" + version(), "GET POST" + version(), "POST GET /a" + version(),
          "GET  HTTP/1.1\r\n\r\n" + std::string()}) {
        EXPECT_EQ(scan(bytes), ends(Kind::invalid, bytes)) << bytes;
    }
    EXPECT_EQ(scan("GET GET /a" + version()), answers({"GET /a"}));
}

TEST(HttpScan, AUrlLosesTheWhiteSpaceAroundIt) {
    EXPECT_EQ(scan("GET /a b" + version()), answers({"/a b"}));
    EXPECT_EQ(scan("GET  \t/a\r\n " + version()), answers({"/a"}));
    EXPECT_EQ(scan("GET  " + version()), answers({" "}));
    EXPECT_EQ(scan("GET \t\r\n" + version()), answers({" "}));
    EXPECT_EQ(scan("GET x" + version()), answers({"x"}));
    EXPECT_EQ(scan("GET \xA0/\xFF" + version()), answers({"\xA0/\xFF"}));
}

TEST(HttpScan, AHeadWithoutEndHasALimit) {
    const std::string before = "GET /a" + version();
    for (const std::string& start :
         {std::string("x"), std::string("GET /"), std::string("GET / HTTP/1.1\r\nHost: ")}) {
        const std::string longest =
            start + std::string(HttpScanner::head_limit - start.size(), 'x');
        EXPECT_EQ(scan(longest).end, Kind::wait) << start;
        EXPECT_EQ(scan(longest + 'x').end, Kind::too_long) << start;
    }
    for (const std::string& start : {std::string("GET /"), std::string("POST / HTTP/1.1\r\nA: ")}) {
        const std::string longest =
            start + std::string(HttpScanner::head_limit - start.size(), 'x');
        EXPECT_EQ(scan(before + longest).end, Kind::wait) << start;
        EXPECT_EQ(scan(before + longest + 'x').end, Kind::too_long) << start;
        EXPECT_EQ(scan(before + longest + 'x').urls.size(), 1U) << start;
    }
    EXPECT_EQ(scan("GET /a HTTP/1.1\r\nA: " + std::string(100'000, 'x') + "\r\n\r\n"),
              answers({"/a"}));
}

TEST(HttpScan, ManyRequestsInOneBufferAreAllFound) {
    std::string bytes;
    for (int index = 0; index < 100'000; ++index) {
        bytes += "GET /" + std::to_string(index) + version();
    }
    const Outcome outcome = scan(bytes);
    ASSERT_EQ(outcome.urls.size(), 100'000U);
    EXPECT_EQ(outcome.urls.back(), "/99999");
    EXPECT_EQ(outcome.left, "");
}
