#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <regex>
#include <semaphore>
#include <string>
#include <thread>

#include "tests/support/files.h"
#include "tests/system/server_test.h"

namespace {

class LogTest : public ServerTest {
  protected:
    // How the server names the one client's session.
    std::string session_id() const {
        const std::string log = server.root().debug_log();
        std::smatch found;
        const std::regex connect(R"(\[(\d+)\] tcp transmit node <127\.0\.0\.1:\d+> connect\n)");
        return std::regex_search(log, found, connect) ? found[1].str() : "none";
    }

    bool logged(const std::string& text) const {
        return server.root().run_log().find(text) != std::string::npos;
    }

    std::string stored(const std::string& name) const {
        return (std::filesystem::canonical(server.storage_folder()) / name).string();
    }
};

constexpr const char* node = "src/norvane_transmit_node NorvaneTransmitNode::";

std::string escaped(const std::string& text) {
    return std::regex_replace(text, std::regex(R"([[().{}|+*?^$\\])"), R"(\$&)");
}

// A line's level, file and function, and its message.
testing::AssertionResult holds_line(const std::string& log, const std::string& place,
                                    const std::string& message) {
    const std::regex line(" " + escaped(place) + R"( \d+ )" + escaped(message) + "\n");
    if (std::regex_search(log, line)) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << "no line " << place << ": " << message << " in\n" << log;
}

}  // namespace

// Most of these faults are found by helpers that serve many operations.
TEST_F(LogTest, ALineNamesTheOperationOfTheRequest) {
    support::write_file(in_storage("file"), "x");
    std::filesystem::create_directory(in_storage("folder"));
    const struct {
        std::string request;
        std::string operation;  // with the level
        std::string message;
        std::string cause;
    } faults[] = {
        {request::upload_file_prepare({.path = "f", .storage_id = 9}),
         "Error do_handle_upload_file_prepare_request", "invalid storage id: 9", ""},
        {request::check_storage_id(8), "Error do_handle_check_storage_id_request",
         "invalid storage id: 8", ""},
        {request::upload_file_finish(), "Error do_handle_upload_file_finish_request",
         "invalid connection data: get transmit event failed", ""},
        {request::download_file_finish(), "Error do_handle_download_file_finish_request",
         "invalid connection data: get transmit event failed", ""},
        {request::download_file_prepare({.path = "none"}),
         "Warning do_handle_download_file_prepare_request",
         "can not access file (" + stored("none") + ")", "No such file or directory"},
        {request::get_path_content("file/x"), "Warning do_handle_get_path_content_request",
         "can not access file (" + stored("file/x") + ")", "Not a directory"},
        {request::create_directory("file/a/b"), "Error do_handle_create_directory_request",
         "create directory failed (" + stored("file/a/b") + ")", "Not a directory"},
        {request::upload_file_prepare({.path = "file/a/b"}),
         "Error do_handle_upload_file_prepare_request",
         "create directory failed (" + stored("file/a") + ")", "Not a directory"},
        {request::rename_path("none", "other"), "Error do_handle_rename_path_request",
         "rename path failed (" + stored("none") + ") -> (" + stored("other") + ")",
         "No such file or directory"},
        {request::rename_path("file", "folder"), "Error do_handle_rename_path_request",
         "rename path failed (" + stored("file") + ") -> (" + stored("folder") + ")",
         "Is a directory"},
    };
    for (const auto& fault : faults) {
        peer.send(fault.request);
    }
    peer.send(std::string("\xff\xff", 2));
    ASSERT_TRUE(await([&] { return logged("unknown message type"); }));

    const std::string log = server.root().run_log();
    const std::string head = "[" + session_id() + "] ";
    const auto expect = [&](const std::string& level_and_operation, const std::string& message) {
        const std::size_t blank = level_and_operation.find(' ');
        const std::string place = level_and_operation.substr(0, blank) + ' ' + node +
                                  level_and_operation.substr(blank + 1);
        EXPECT_TRUE(holds_line(log, place, head + message));
    };
    for (const auto& fault : faults) {
        expect(fault.operation, fault.message);
        if (!fault.cause.empty()) {
            expect(fault.operation, fault.message + ": " + fault.cause);
        }
    }
    expect("Error on_recv_data", "unknown message type (65535)");
}

TEST_F(LogTest, ProgressNamesTheOperationToo) {
    ASSERT_EQ(peer.upload({.path = "f", .size = 1}, "x"), message::status_ok);
    const std::string log = server.root().debug_log();
    const std::string head = "[" + session_id() + "] ";
    const std::string debug = "Debug ";
    EXPECT_TRUE(holds_line(log, "Debug src/norvane_session INorvaneSession::recv_connect_response",
                           head + "recv connect response"));
    EXPECT_TRUE(holds_line(log, debug + node + "set_connection_transmit_event",
                           head + "set user data (upload_file_event)"));
    EXPECT_TRUE(holds_line(log, debug + node + "do_handle_upload_file_prepare_request",
                           head + "upload file begin (" + stored("f") + ")"));
    EXPECT_TRUE(holds_line(log, debug + node + "do_handle_upload_file_finish_request",
                           head + "upload file end (" + stored("f") + ")"));
    EXPECT_TRUE(holds_line(log, "Debug src/norvane_transmit_service NorvaneTransmitService::init",
                           "tcp transmit service init success"));
}

TEST_F(LogTest, TheCommandPortsReaderIsNamed) {
    support::RawSocket browser(server.command_port());
    browser.send(" HTTP/1.1 GET /a HTTP/1.1\r\n\r\n");
    ASSERT_TRUE(await([&] { return logged("invalid http data"); }));
    EXPECT_NE(server.root().run_log().find(
                  "Error src/norvane_transmit_service NorvaneTransmitService::recv_http_data "),
              std::string::npos);
}

namespace {

// What one kind of line stands for in a log: the lines themselves and those that are counted.
std::uint64_t lines_told(const std::string& log, const std::string& line, const std::string& kind) {
    std::uint64_t told = 0;
    const std::regex wanted(escaped(line) +
                            "\n|(\\d+) more(?: of all sessions)?: " + escaped(kind) + "\n");
    for (std::sregex_iterator at(log.begin(), log.end(), wanted), end; at != end; ++at) {
        told += (*at)[1].matched ? std::stoull((*at)[1].str()) : 1;
    }
    return told;
}

}  // namespace

TEST_F(LogTest, AFloodOfBadRequestsIsCountedAndHidesNobody) {
    constexpr int flood = 3000;
    for (int number = 0; number < flood; ++number) {
        ASSERT_EQ(peer.ask(request::check_storage_id(8)), message::status_invalid_storage_id);
    }
    Peer other(server.transmit_port());
    other.ask(request::check_storage_id(9));
    ASSERT_TRUE(await([&] { return logged("invalid storage id: 9"); }));
    EXPECT_EQ(server.stop(), support::exited_with(0));
    const std::string log = server.root().run_log();
    EXPECT_LT(log.size(), 16384U);
    EXPECT_EQ(lines_told(log, "invalid storage id: 8", "invalid storage id: %u"), flood);
    server.start();
}

TEST_F(LogTest, AFloodFromManyConnectionsIsCounted) {
    constexpr int flood = 500;
    for (int number = 0; number < flood; ++number) {
        Peer(server.transmit_port()).ask(request::check_storage_id(8));
    }
    EXPECT_EQ(server.stop(), support::exited_with(0));
    const std::string log = server.root().run_log();
    EXPECT_LT(log.size(), 65536U);
    EXPECT_EQ(lines_told(log, "invalid storage id: 8", "invalid storage id: %u"), flood);
    server.start();
}

// A pipe that nobody empties stands for the debug log's disk.
TEST_F(LogTest, AHungDiskOfTheLogHoldsUpOneClientAtMost) {
    ASSERT_EQ(server.stop(), support::exited_with(0));
    const std::string path = server.root().path() + "log/debug.log";
    std::filesystem::remove(path);
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    const int pipe = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    server.start();

    constexpr int uploads = 200;  // each writes four lines, and a pipe holds 64 KiB
    std::counting_semaphore<> done(0);
    const auto upload_all = [&](std::string name) {
        Peer client(server.transmit_port());
        for (int number = 0; number < uploads; ++number) {
            EXPECT_EQ(client.upload({.path = name + std::to_string(number), .size = 1}, "x"),
                      message::status_ok);
        }
        done.release();
    };
    std::jthread clients[] = {std::jthread(upload_all, "a"), std::jthread(upload_all, "b"),
                              std::jthread(upload_all, "c")};
    EXPECT_TRUE(done.try_acquire_for(std::chrono::minutes(1)));
    EXPECT_TRUE(done.try_acquire_for(std::chrono::minutes(1)));
    EXPECT_FALSE(done.try_acquire()) << "nothing hung";

    std::string text;
    const auto empty_pipe = [&] {
        std::array<char, 4096> bytes{};
        const ssize_t count = ::read(pipe, bytes.data(), bytes.size());
        text.append(bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    };
    while (!done.try_acquire()) {
        empty_pipe();
    }
    EXPECT_TRUE(await([&] {
        empty_pipe();
        return text.find(" lines are missing here\n") != std::string::npos;
    }));
    ::close(pipe);
}
