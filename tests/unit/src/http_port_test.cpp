#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "tests/support/scripted_connection.h"
#include "tests/unit/src/served_root.h"

namespace {

std::string answer(const std::string& status, const std::string& type, const std::string& body) {
    return "HTTP/1.1 " + status +
           "\r\nAccess-Control-Allow-Origin: *\r\nConnection: close\r\nContent-Type: " + type +
           "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

std::string status_page(const std::string& status) {
    return answer(status, "text/html",
                  "<html><head><title>" + status + "</title></head><body><h1>" + status +
                      "</h1></body></html>");
}

std::string request(const std::string& url) {
    return "GET " + url + " HTTP/1.1\r\nHost: x\r\n\r\n";
}

std::string not_found() {
    return status_page("404 Not Found");
}

class HttpPort : public testing::Test {
  protected:
    HttpPort() {
        EXPECT_TRUE(service.on_accept(&connection, served_.command_port()));
        write("main.html", "<h1>main</h1>");
    }

    std::string www() const { return served_.root() + "www/"; }
    void write(const std::string& name, const std::string& content) const {
        support::write_file(www() + name, content);
    }
    // What the server says to these bytes.
    std::string say(const std::string& bytes) {
        connection.feed(bytes);
        EXPECT_TRUE(service.on_recv(&connection));
        return connection.take_sent();
    }
    std::string get(const std::string& url) { return say(request(url)); }

    ServedRoot served_;
    NorvaneTransmitService& service = ServedRoot::service();
    support::ScriptedConnection connection;
};

}  // namespace

TEST_F(HttpPort, ServesARequestWhenItsLastByteHasArrived) {
    const std::string bytes = request("/");
    for (const char byte : bytes.substr(0, bytes.size() - 1)) {
        EXPECT_EQ(say({byte}), "");
    }
    EXPECT_EQ(connection.received(), bytes.substr(0, bytes.size() - 1));
    EXPECT_EQ(connection.needed(), 14U);
    EXPECT_EQ(say("\n"), answer("200 OK", "text/html", "<h1>main</h1>"));
    EXPECT_EQ(connection.received(), "");
}

TEST_F(HttpPort, AnswersRequestsOfOneBufferInOrder) {
    write("a.txt", "a");
    EXPECT_EQ(say("junk" + request("/a.txt") + "POST /b HTTP/1.0\r\n\r\nbody" + request("/")),
              answer("200 OK", "text/plain", "a") + not_found() +
                  answer("200 OK", "text/html", "<h1>main</h1>"));
    EXPECT_EQ(connection.received(), "");
}

TEST_F(HttpPort, TakesNoFurtherRequestWhileThePeerLeavesAnswersUnread) {
    write("big.txt", std::string(1000, 'b'));
    const std::string big = answer("200 OK", "text/plain", std::string(1000, 'b'));
    connection.send_mark = 500;
    EXPECT_EQ(say(request("/big.txt") + request("/big.txt") + request("/none")), big);
    EXPECT_EQ(say(""), big);
    EXPECT_EQ(say(""), not_found());
    EXPECT_EQ(connection.received(), "");
}

TEST_F(HttpPort, EndsAConnectionThatSendsNoHttp) {
    connection.feed(" HTTP/1.1 GET /a HTTP/1.1\r\n\r\n");
    EXPECT_FALSE(service.on_recv(&connection));
    EXPECT_EQ(connection.take_sent(), "");
    EXPECT_NE(served_.run_log().find("invalid http data: { HTTP/1.1 GET /a HTTP/1.1"),
              std::string::npos);
}

TEST_F(HttpPort, EndsAConnectionWhoseHeadHasNoEnd) {
    EXPECT_EQ(say(request("/none") + "GET /" + std::string(65'000, 'x')), not_found());
    connection.feed(std::string(1000, 'x'));
    EXPECT_FALSE(service.on_recv(&connection));
}

TEST_F(HttpPort, EndsAConnectionWhoseReceiveBufferFails) {
    connection.feed(request("/"));
    connection.fail_copy = true;
    EXPECT_FALSE(service.on_recv(&connection));
    EXPECT_NE(served_.run_log().find("recv_buffer_copy_len failed"), std::string::npos);
    connection.fail_copy = false;
    connection.fail_drop = true;
    EXPECT_FALSE(service.on_recv(&connection));
    EXPECT_NE(served_.run_log().find("recv_buffer_drop_len failed"), std::string::npos);
}

TEST_F(HttpPort, GoesOnBehindAnAnswerThatTheSendBufferRefused) {
    connection.fail_fill = true;
    EXPECT_EQ(get("/"), "");
    EXPECT_EQ(connection.received(), "");
    EXPECT_NE(served_.run_log().find("send_buffer_fill_len failed"), std::string::npos);
    EXPECT_NE(served_.debug_log().find("handle_http error"), std::string::npos);
    connection.fail_fill = false;
    EXPECT_EQ(get("/x"), not_found());
}

TEST_F(HttpPort, ServesFilesByTheirExtension) {
    const std::pair<const char*, const char*> files[] = {
        {"/page.html", "text/html"},
        {"/UPPER.HTML", "text/html"},
        {"/deep/down/a b.JS", "text/javascript"},
        {"/x.mocha", "application/x-javascript"},
        {"/x.cab", "application/x-shockwave-flash"},
        {"/x.tif", "application/x-tif"},
        {"/x.tiff", "image/tiff"},
        {"/x.bmp", "application/x-MS-bmp"},
        {"/x.svg", "text/xml"},
        {"/x.java", "java/*"},
        {"/x.mp3", "audio/x-mpeg"},
        {"/x.tar.gz", "application/x-gzip"},
        {"/x.001", "application/x-001"},
        {"/x.zip", "application/zip"},
        {"/dot.", "application/x-"},
        {"/x.unknown", "application/octet-stream"},
        {"/deep.dir/plain", "application/octet-stream"},
    };
    for (const auto& [url, type] : files) {
        const std::string content = std::string("\0\r\n\xFF", 4) + url;
        support::write_file(served_.root() + "www" + url, content);
        EXPECT_EQ(get(url), answer("200 OK", type, content));
    }
    write("empty.css", "");
    EXPECT_EQ(get("/empty.css"), answer("200 OK", "text/css", ""));
}

TEST_F(HttpPort, JoinsAUrlToTheFolderAsItStands) {
    write("page.html", "page");
    support::write_file(served_.root() + "wwwabc", "beside");
    EXPECT_EQ(get("abc"), answer("200 OK", "application/octet-stream", "beside"));
    EXPECT_EQ(get("/page.html?x=1"), not_found());
    EXPECT_EQ(get("/p%61ge.html"), not_found());
    EXPECT_EQ(get("/sys"), not_found());
    EXPECT_EQ(get("/sys/"), not_found());
    EXPECT_EQ(get(" "), not_found());
}

TEST_F(HttpPort, NeverLeavesTheFolder) {
    write("a..b.html", "");
    EXPECT_EQ(get("/../cfg/config.xml"), status_page("403 Forbidden"));
    EXPECT_EQ(get("/a..b.html"), status_page("403 Forbidden"));
}

TEST_F(HttpPort, WhatIsNoRegularFileIsNotFoundAtOnce) {
    std::filesystem::create_directory(www() + "folder");
    ASSERT_EQ(::mkfifo((www() + "pipe.html").c_str(), 0600), 0);
    std::filesystem::create_symlink("/dev/zero", www() + "zero.html");
    std::filesystem::create_symlink("nowhere", www() + "dangling.html");
    for (const char* url : {"/folder", "/folder/", "/pipe.html", "/zero.html", "/dangling.html",
                            "/main.html/", "/none.html"}) {
        EXPECT_EQ(get(url), not_found()) << url;
    }
    EXPECT_EQ(get("/" + std::string(5000, 'n')), not_found());
}

TEST_F(HttpPort, CommandsAreAnsweredWithTheirDocument) {
    const std::string list = answer("200 OK", "application/json", R"({"transmit_nodes":[]})");
    for (const char* url :
         {"/sys/transmit_list", "/sys/ transmit_list ?", "/sys/?&transmit_list"}) {
        EXPECT_EQ(get(url), list) << url;
    }
    EXPECT_NE(get("/sys/transmit_statistics?").find(R"({"transmit_statistics":{)"),
              std::string::npos);
}

TEST_F(HttpPort, RefusedCommandsAreAnsweredWithAStatusPage) {
    for (const char* url :
         {"/sys/Transmit_List", "/sys/transmit%5Flist", "/sys/transmit_list/", "/sys/?"}) {
        EXPECT_EQ(get(url), status_page("400 Bad Request")) << url;
    }
    for (const char* url :
         {"/sys/transmit_list?a=1", "/sys/transmit_list?=1", "/sys/transmit_statistics&a"}) {
        EXPECT_EQ(get(url), status_page("412 Precondition Failed")) << url;
    }
    EXPECT_EQ(get("/sys/transmit_list"),
              answer("200 OK", "application/json", R"({"transmit_nodes":[]})"));
}
