#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/files.h"
#include "tests/system/http_peer.h"
#include "tests/system/process_figures.h"
#include "tests/system/server_test.h"

// The command port as browsers and scripts meet it. TRANSMIT_HEAVY_TESTS=1 in the environment also
// runs what has to wait for the server's time limits.
namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr std::size_t kibibyte = 1024;
constexpr std::size_t mebibyte = 1024 * kibibyte;

bool has_sanitizer() {
    return !std::string_view(TRANSMIT_SANITIZE).empty();
}

bool is_heavy() {
    const char* wish = std::getenv("TRANSMIT_HEAVY_TESTS");
    return wish != nullptr && std::string_view(wish) == "1";
}

class CommandPortTest : public ServerTest {
  protected:
    CommandPortTest() : http(server.command_port()) {}

    std::string in_www(const std::string& name) const {
        return server.root().path() + "www/" + name;
    }

    HttpPeer http;
    const Answer not_found = status_page("404 Not Found");
    const Answer forbidden = status_page("403 Forbidden");
    const Answer bad_request = status_page("400 Bad Request");
    const Answer precondition_failed = status_page("412 Precondition Failed");
};

TEST_F(CommandPortTest, TakesRequestsInAnyPieces) {
    support::write_file(in_www("a.txt"), "first");
    support::write_file(in_www("b.txt"), "second");
    const std::string requests =
        "GET /a.txt HTTP/1.1\r\nHost: x\r\n\r\nPOST /b.txt HTTP/1.0\r\nContent-Length: "
        "4\r\n\r\nbody"
        "--GET /none HTTP/1.1\r\n\r\n";
    const std::string answers = bytes_of({"200 OK", "text/plain", "first"}) +
                                bytes_of({"200 OK", "text/plain", "second"}) + bytes_of(not_found);
    std::deque<HttpPeer> peers;
    for (std::size_t cut = 0; cut <= requests.size(); ++cut) {
        peers.emplace_back(server.command_port()).send(requests.substr(0, cut));
    }
    // While this is answered, the server has its time with the first pieces.
    EXPECT_EQ(http.get("/a.txt").body, "first");
    for (std::size_t cut = 0; cut <= requests.size(); ++cut) {
        peers[cut].send(requests.substr(cut));
    }
    for (std::size_t cut = 0; cut <= requests.size(); ++cut) {
        EXPECT_EQ(peers[cut].receive_rest(), answers) << "cut at " << cut;
    }
    HttpPeer trickle(server.command_port());
    for (const char byte : requests) {
        trickle.send({&byte, 1});
    }
    EXPECT_EQ(trickle.receive_rest(), answers);
}

TEST_F(CommandPortTest, ServesOddRequestsAndPassesOverWhatIsNone) {
    support::write_file(in_www("a.txt"), "first");
    support::write_file(in_www("a b.txt"), "blank");
    const Answer first{"200 OK", "text/plain", "first"};
    const std::pair<std::string, std::string> conversations[] = {
        {"PUT /a.txt HTTP/1.1\r\n\r\n", ""},
        {"0123456789abc", ""},
        {"GET /a.txt\r\n\r\n", ""},
        {"GET /a.txt\r\n\r\n HTTP/1.1\r\n\r\n", bytes_of(first)},
        {"\r\n\r\n\x16\x03\x01\xFF FORGET /a.txt HTTP/1.1\r\n\r\n", bytes_of(first)},
        {"GET \t /a.txt\t  HTTP/0.9 and whatever else\r\n\r\n", bytes_of(first)},
        {"GET /a b.txt HTTP/1.1\r\n\r\n", bytes_of({"200 OK", "text/plain", "blank"})},
        {"GET GET /a.txt HTTP/1.1\r\n\r\n", bytes_of(not_found)},
        {"GET   HTTP/1.1\r\n\r\n", bytes_of(not_found)},
        {"GET /a.txt HTTP/1.1\r\nX: " + std::string(64'000, 'x') + "\r\n\r\n", bytes_of(first)},
    };
    for (const auto& [request, answer] : conversations) {
        HttpPeer own(server.command_port());
        own.send(request);
        EXPECT_EQ(own.receive_rest(), answer) << request.substr(0, 100);
    }
    // A connection stays open behind its answers, whatever their heads say.
    EXPECT_EQ(http.get("/a.txt"), first);
    http.send("\r\n\r\nnonsense");
    EXPECT_EQ(http.get("/a.txt"), first);
}

TEST_F(CommandPortTest, EndsConnectionsThatSendNoHttp) {
    const std::string endless(70 * kibibyte, 'x');
    const std::pair<std::string, std::string> conversations[] = {
        {" HTTP/1.1 GET /a HTTP/1.1\r\n\r\n", ""},
        {"GET POST HTTP/1.1\r\n\r\n", ""},
        {"POST GET /a HTTP/1.1\r\n\r\n", ""},
        {"GET  HTTP/1.1\r\n\r\n", ""},
        {endless, ""},
        {"GET /" + endless, ""},
        {get_request("/none") + "GET /none HTTP/1.1\r\nX: " + endless, bytes_of(not_found)},
    };
    for (const auto& [request, answer] : conversations) {
        HttpPeer own(server.command_port());
        // The end may come before the last byte of a long head is out.
        own.socket().send(request);
        const std::string answered = own.socket().receive_to_end();
        EXPECT_TRUE(own.socket().await_close()) << request.substr(0, 100);
        EXPECT_TRUE(answer.starts_with(answered)) << request.substr(0, 100);
    }
    EXPECT_EQ(http.get("/none"), not_found);
}

TEST_F(CommandPortTest, EndsAHeadThatTakesTooLong) {
    if (!is_heavy()) {
        GTEST_SKIP() << "takes more than half a minute";
    }
    const auto start = steady_clock::now();
    HttpPeer silent(server.command_port());
    HttpPeer trickling(server.command_port());
    silent.send("GET /");
    std::thread trickle([&] {
        while (trickling.socket().send("x") && steady_clock::now() - start < seconds(40)) {
            std::this_thread::sleep_for(seconds(1));
        }
    });
    EXPECT_TRUE(silent.socket().await_close());
    EXPECT_TRUE(trickling.socket().await_close());
    EXPECT_GE(steady_clock::now() - start, seconds(29));
    trickle.join();
    EXPECT_LT(steady_clock::now() - start, seconds(36));
    // A connection on which nothing has begun may stay.
    EXPECT_EQ(http.get("/none"), not_found);
}

TEST_F(CommandPortTest, TellsCommandsFromFiles) {
    support::write_file(in_www("main.html"), "<h1>main</h1>");
    support::write_file(in_www("..b.html"), "");
    support::write_file(in_www("doc/UP.HTML"), "");
    support::write_file(in_www("sys/file.txt"), "");
    support::write_file(server.root().path() + "wwwabc.zip", "beside");
    const std::pair<std::string, Answer> answers[] = {
        {"/", {"200 OK", "text/html", "<h1>main</h1>"}},
        {"/doc/UP.HTML", {"200 OK", "text/html", ""}},
        {"abc.zip", {"200 OK", "application/zip", "beside"}},
        {"/doc", not_found},
        {"/doc/", not_found},
        {"/doc/up.html", not_found},
        {"/doc/UP.HTML?x=1", not_found},
        {"/main%2Ehtml", not_found},
        {"/..b.html", forbidden},
        {"/doc/../main.html", forbidden},
        {"/../cfg/config.xml", forbidden},
        {"/sys", not_found},
        {"/sys/", not_found},
        {"/sys/?", bad_request},
        {"/sys/file.txt", bad_request},
        {"/sys/Transmit_List", bad_request},
        {"/sys/transmit_list/", bad_request},
        {"/sys/transmit%5Flist", bad_request},
        {"/sys/../main.html", bad_request},
        {"/sys/transmit_list?a=1", precondition_failed},
        {"/sys/transmit_list?=1", precondition_failed},
        {"/sys/transmit_statistics&transmit_list", precondition_failed},
    };
    for (const auto& [url, answer] : answers) {
        EXPECT_EQ(http.get(url), answer) << url;
    }
    for (const char* url : {"/sys/transmit_list", "/sys/?&transmit_list", "/sys/ transmit_list ?",
                            "/sys/transmit_statistics?"}) {
        const Answer answer = http.get(url);
        EXPECT_EQ(answer.status, "200 OK") << url;
        EXPECT_EQ(answer.type, "application/json") << url;
    }
}

TEST_F(CommandPortTest, ServesFilesOfAnySizeWhole) {
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, 64 * kibibyte, 100'000'000UL}) {
        const std::string content = support::random_bytes(size, size);
        support::write_file(in_www("file.tgz"), content);
        const Answer answer = http.get("/file.tgz");
        EXPECT_EQ(answer.status, "200 OK");
        EXPECT_EQ(answer.type, "application/x-tar");
        EXPECT_TRUE(answer.body == content) << size;
    }
}

TEST_F(CommandPortTest, FindsNothingWhereNoReadableFileIs) {
    std::filesystem::create_directory(in_www("folder.html"));
    ASSERT_EQ(::mkfifo(in_www("pipe.html").c_str(), 0600), 0);
    ASSERT_EQ(::mknod(in_www("socket.html").c_str(), S_IFSOCK | 0600, 0), 0);
    std::filesystem::create_symlink("/dev/zero", in_www("zero.html"));
    std::filesystem::create_symlink("/dev/stdin", in_www("stdin.html"));
    std::filesystem::create_symlink("loop.html", in_www("loop.html"));
    std::vector<std::string> urls = {"/folder.html", "/pipe.html",  "/socket.html",
                                     "/zero.html",   "/stdin.html", "/loop.html"};
    if (::mknod(in_www("device.html").c_str(), S_IFCHR | 0600, makedev(1, 5)) == 0) {
        urls.emplace_back("/device.html");
    }
    if (::geteuid() != 0) {
        support::write_file(in_www("secret.html"), "");
        std::filesystem::permissions(in_www("secret.html"), std::filesystem::perms::none);
        urls.emplace_back("/secret.html");
    }
    const auto ask_for_all = [&] {
        for (const std::string& url : urls) {
            EXPECT_EQ(http.get(url), not_found) << url;
        }
    };
    ask_for_all();
    const std::size_t descriptors = process_figures::open_descriptors(server.pid());
    const std::uint64_t memory = process_figures::peak_resident_memory(server.pid());
    for (int round = 0; round < 100; ++round) {
        ask_for_all();
    }
    // Its start may still open one or two; a leak would be of hundreds.
    EXPECT_LT(process_figures::open_descriptors(server.pid()), descriptors + 10);
    if (!has_sanitizer()) {
        EXPECT_LT(process_figures::peak_resident_memory(server.pid()), memory + 8 * mebibyte);
    }
}

TEST_F(CommandPortTest, AClientThatLeavesItsAnswersUnreadCostsLittle) {
    constexpr std::size_t count = 60;
    constexpr std::size_t size = 10 * mebibyte;
    const std::string content = support::random_bytes(size, 1);
    support::write_file(in_www("big.bin"), content);
    const std::uint64_t memory = process_figures::peak_resident_memory(server.pid());
    for (std::size_t i = 0; i < count; ++i) {
        http.send(get_request("/big.bin"));
    }
    HttpPeer other(server.command_port());
    EXPECT_EQ(other.get("/none"), not_found);
    for (std::size_t i = 0; i < count; ++i) {
        ASSERT_TRUE(http.receive().body == content) << i;
    }
    if (!has_sanitizer()) {
        EXPECT_LT(process_figures::peak_resident_memory(server.pid()), memory + size);
    }
}

}  // namespace
