#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "aes_ecb/aes_ecb.h"
#include "kestin_base/file_system.h"
#include "src/message/catalogue.h"
#include "src/message/payload_key.h"
#include "src/message/status.h"
#include "src/norvane_transmit_node/norvane_transmit_node.h"
#include "src/norvane_transmit_node/payload_buffers.h"
#include "src/norvane_transmit_node/rate_window.h"
#include "src/norvane_transmit_node/upload_plan.h"
#include "src/norvane_transmit_node/user_information.h"
#include "src/shared/live_node_record.h"
#include "tests/support/files.h"
#include "tests/support/scripted_connection.h"
#include "tests/unit/src/served_root.h"

namespace {

using namespace std::string_literals;
using support::ScriptedConnection;

template <typename Record>
std::string wire(Record record) {
    message::to_network_order(record);
    return {reinterpret_cast<const char*>(&record), sizeof record};
}

template <typename Record>
Record read_record(std::string_view bytes) {
    Record record{};
    EXPECT_GE(bytes.size(), sizeof record);
    std::memcpy(&record, bytes.data(), std::min(bytes.size(), sizeof record));
    message::to_host_order(record);
    return record;
}

std::string upload_prepare(const std::string& path, std::int64_t size, std::int64_t time,
                           bool encrypted = false) {
    message::UploadFilePrepareRequest request{};
    request.type = message::UploadFilePrepare::type;
    request.encrypted = encrypted ? 1 : 0;
    request.storage_id = 1;
    request.file_size = size;
    request.file_time = time;
    request.path_length = static_cast<std::uint16_t>(path.size());
    return wire(request) + path;
}

std::string upload_data(std::string_view data) {
    message::UploadFileDataRequest request{};
    request.type = message::UploadFileData::type;
    request.data_length = static_cast<std::uint32_t>(data.size());
    return wire(request).append(data);
}

std::string download_prepare(const std::string& path) {
    message::DownloadFilePrepareRequest request{};
    request.type = message::DownloadFilePrepare::type;
    request.storage_id = 1;
    request.path_length = static_cast<std::uint16_t>(path.size());
    return wire(request) + path;
}

std::string download_data(std::int64_t offset) {
    message::DownloadFileDataRequest request{};
    request.type = message::DownloadFileData::type;
    request.offset = offset;
    return wire(request);
}

std::string transmit_speed(std::uint32_t send_speed) {
    message::SetTransmitSpeedRequest request{};
    request.type = message::SetTransmitSpeed::type;
    request.send_speed = send_speed;
    return wire(request);
}

template <typename Row>
std::string type_only() {
    return wire(message::TypeOnlyRequest{.type = Row::type});
}

template <typename Row>
std::string path_request(const std::string& path) {
    message::PathRequest request{};
    request.type = Row::type;
    request.storage_id = 1;
    request.path_length = static_cast<std::uint16_t>(path.size());
    return wire(request) + path;
}

std::string rename_request(const std::string& old_path, const std::string& new_path) {
    message::RenamePathRequest request{};
    request.type = message::RenamePath::type;
    request.storage_id = 1;
    request.old_path_length = static_cast<std::uint16_t>(old_path.size());
    request.new_path_length = static_cast<std::uint16_t>(new_path.size());
    return wire(request) + old_path + new_path;
}

// One well-formed request of each type, none of which needs another before it.
std::vector<std::string> all_requests() {
    message::CheckStorageIdRequest check{};
    check.type = message::CheckStorageId::type;
    return {
        upload_prepare("a", 1, 1),
        upload_data("x"),
        type_only<message::UploadFileFinish>(),
        download_prepare("missing"),
        download_data(0),
        type_only<message::DownloadFileFinish>(),
        path_request<message::CreateDirectory>("folder"),
        path_request<message::DeletePath>("missing"),
        rename_request("missing", "other"),
        wire(message::SetUserInformationRequest{.type = 18, .text_length = 2}) + "{}",
        type_only<message::GetStorageInformation>(),
        type_only<message::GetNorvaneNodeCount>(),
        transmit_speed(0),
        wire(check),
        path_request<message::GetPathContent>(""),
        wire(message::TestDataRequest{.type = 30, .data_length = 3}) + "abc",
        wire(message::TestDataRequest{.type = 32, .data_length = 3}),
        type_only<message::CleanupConnection>(),
    };
}

// A node of the real service on a connection that the test scripts.
class Client {
  public:
    explicit Client(const ServedRoot& served) : served_(served) {
        EXPECT_TRUE(ServedRoot::service().on_accept(&connection, served_.transmit_port()));
    }
    ~Client() { disconnect(); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    void disconnect() {
        if (connection.get_user_data() != nullptr) {
            ServedRoot::service().on_close(&connection);
        }
    }

    bool deliver(const std::string& bytes) {
        connection.feed(bytes);
        return ServedRoot::service().on_recv(&connection);
    }
    std::string ask(const std::string& bytes) {
        EXPECT_TRUE(deliver(bytes));
        return connection.take_sent();
    }
    template <typename Response>
    Response ask_for(const std::string& bytes) {
        return read_record<Response>(ask(bytes));
    }
    message::Status status_of(const std::string& bytes) {
        return message::Status{ask_for<message::PlainResponse>(bytes).status};
    }
    bool send_ready() { return ServedRoot::service().on_send(&connection); }

    ScriptedConnection connection;

  private:
    const ServedRoot& served_;
};

class NodeTest : public testing::Test {
  protected:
    std::string stored(const std::string& name) const {
        return support::read_file(served_.storage() + name);
    }
    static constexpr std::int64_t time = 1'700'000'000;

    ServedRoot served_;
};

TEST_F(NodeTest, WaitsForTheWholeOfEveryRequest) {
    for (const std::string& request : all_requests()) {
        for (std::size_t cut = 1; cut < request.size(); ++cut) {
            Client client(served_);
            EXPECT_EQ(client.ask(request.substr(0, cut)), "");
            EXPECT_EQ(client.connection.received(), request.substr(0, cut));
            client.ask(request.substr(cut));
            EXPECT_EQ(client.connection.received(), "");
        }
    }
}

TEST_F(NodeTest, AnswersPipelinedRequestsInTheirOrder) {
    Client client(served_);
    std::string all;
    for (const std::string& request : all_requests()) {
        all += request;
    }
    const std::string answers = client.ask(all + "\x00"s);
    EXPECT_EQ(client.connection.received(), "\x00"s);
    EXPECT_EQ(read_record<message::UploadFilePrepareResponse>(answers).type, 1);
    EXPECT_EQ(read_record<message::PlainResponse>(answers.substr(answers.size() - 4)).type, 35);
}

TEST_F(NodeTest, EndsTheConnectionOnAnUnknownType) {
    for (const unsigned type : {1U, 35U, 36U, 65535U}) {
        Client client(served_);
        EXPECT_FALSE(client.deliver(
            wire(message::TypeOnlyRequest{static_cast<std::uint16_t>(type)}) + "rest"));
        EXPECT_EQ(client.connection.take_sent(), "");
    }
    EXPECT_NE(served_.run_log().find("unknown message type (65535)"), std::string::npos);
}

TEST_F(NodeTest, EndsTheConnectionOnEveryFaultOfABuffer) {
    for (const std::string& request : all_requests()) {
        for (bool ScriptedConnection::*fault :
             {&ScriptedConnection::fail_copy, &ScriptedConnection::fail_move,
              &ScriptedConnection::fail_drop, &ScriptedConnection::fail_fill}) {
            Client untroubled(served_);
            Client client(served_);
            client.connection.*fault = true;
            const bool goes_on = client.deliver(request);
            // Not every request uses every operation; one that does is not answered.
            EXPECT_EQ(goes_on, !client.connection.take_sent().empty()) << request[1] + 0;
        }
    }
}

TEST_F(NodeTest, KeepsAPartialUploadForTheNextConnection) {
    Client first(served_);
    first.ask(upload_prepare("a.bin", 10, time) + upload_data("hello"));
    first.disconnect();
    std::int64_t stamped = 0;
    EXPECT_TRUE(Kestin::Base::file_get_time((served_.storage() + "a.bin.tcp").c_str(), stamped));
    EXPECT_EQ(stamped, time);

    Client second(served_);
    const auto prepared =
        second.ask_for<message::UploadFilePrepareResponse>(upload_prepare("a.bin", 10, time));
    EXPECT_EQ(prepared.status, message::status_file_incomplete);
    EXPECT_EQ(prepared.offset, 5);
    EXPECT_EQ(second.ask(upload_data("world")), "");
    EXPECT_EQ(second.status_of(type_only<message::UploadFileFinish>()), message::status_ok);
    EXPECT_EQ(stored("a.bin"), "helloworld");
}

TEST_F(NodeTest, LetsOneUploadHoldATargetAndItsTemporaryName) {
    Client holder(served_);
    holder.ask(upload_prepare("n", 5, time) + upload_data("he"));
    Client other(served_);
    for (const char* name : {"n", "n.tcp"}) {
        EXPECT_EQ(other.status_of(upload_prepare(name, 9, time + 1)), message::status_file_in_use);
    }
    EXPECT_EQ(holder.status_of(upload_prepare("n", 5, time)), message::status_file_in_use);
    holder.ask(upload_data("llo"));
    EXPECT_EQ(holder.status_of(type_only<message::UploadFileFinish>()), message::status_ok);
    EXPECT_EQ(stored("n"), "hello");

    other.ask(upload_prepare("n.tcp", 1, time));
    EXPECT_EQ(holder.status_of(upload_prepare("n", 9, time)), message::status_file_in_use);
    EXPECT_EQ(stored("n"), "hello");
    // What is complete already is told also while somebody holds the name.
    EXPECT_EQ(holder.status_of(upload_prepare("n", 5, time)), message::status_ok);
    EXPECT_TRUE(Kestin::Base::kestin_access_safe((served_.storage() + "n.tcp.tcp").c_str()));
}

TEST_F(NodeTest, AnswersABlockOnlyWhenItFails) {
    Client client(served_);
    EXPECT_EQ(client.status_of(upload_data("x")), message::status_invalid_connection_data);
    client.ask(upload_prepare("e", 100, time, true));
    EXPECT_EQ(client.ask(upload_data("")), "");
    EXPECT_EQ(client.status_of(upload_data("no cipher text")), message::status_decrypt_failed);
    EXPECT_EQ(client.status_of(type_only<message::UploadFileFinish>()),
              message::status_invalid_connection_data);
    EXPECT_EQ(stored("e.tcp"), "");
}

TEST_F(NodeTest, KeepsNoLargeBufferOfABlockThatIsNoCipherText) {
    Client client(served_);
    client.ask(upload_prepare("e", 100, time, true));
    EXPECT_EQ(client.status_of(upload_data(std::string(4 << 20, 'x'))),
              message::status_decrypt_failed);
    EXPECT_LE(PayloadBuffers::of_this_thread().converted.capacity(), PayloadBuffers::kept_size);
}

TEST_F(NodeTest, TellsAtOnceThatABlockCouldNotBeWritten) {
    ASSERT_NE(std::signal(SIGXFSZ, SIG_IGN), SIG_ERR);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    Client client(served_);
    client.ask(upload_prepare("big", 1 << 20, time));
    const rlimit small{.rlim_cur = 65536, .rlim_max = before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    const std::string answers = client.ask(upload_data(std::string(65535, 'x')) +
                                           upload_data("two") + upload_data("three"));
    setrlimit(RLIMIT_FSIZE, &before);
    // The upload has ended when the third block is looked at.
    EXPECT_EQ(answers, std::string({0, 3, 0, message::status_write_failed, 0, 3, 0,
                                    message::status_invalid_connection_data}));
    EXPECT_EQ(
        client.ask_for<message::UploadFilePrepareResponse>(upload_prepare("big", 1 << 20, time))
            .offset,
        65536);
}

TEST_F(NodeTest, RefusesPathsThatATransferCanNotHold) {
    Client client(served_);
    const std::string folder(200, 'f');
    std::string path;
    while (served_.storage().size() + path.size() < 1024) {
        path += folder + "/";
    }
    EXPECT_EQ(client.status_of(upload_prepare(path + "x", 1, time)),
              message::status_open_write_failed);
    EXPECT_EQ(client.status_of(download_prepare(path + "x")), message::status_access_failed);
    EXPECT_FALSE(Kestin::Base::kestin_access_safe((served_.storage() + folder).c_str()));
}

TEST_F(NodeTest, PumpsOneChunkACallUntilALimitIsSet) {
    support::write_file(served_.storage() + "m", std::string(1 << 20, 'm'));
    constexpr std::size_t frame = 8 + 65536;
    Client client(served_);
    client.ask(transmit_speed(0) + download_prepare("m"));
    EXPECT_EQ(client.ask(download_data(0)).size(), frame);
    for (int call = 1; call < 16; ++call) {
        EXPECT_TRUE(client.send_ready());
        EXPECT_EQ(client.connection.take_sent().size(), frame) << call;
    }
    // The end shows in a read of nothing; the closing response comes behind that.
    EXPECT_TRUE(client.send_ready());
    EXPECT_EQ(client.connection.take_sent(), "");
    EXPECT_TRUE(client.send_ready());
    EXPECT_EQ(client.connection.take_sent(),
              wire(message::DataResponse{.type = 9, .status = 0, .data_length = 0}));
    EXPECT_TRUE(client.send_ready());
    EXPECT_EQ(client.connection.take_sent(), "");

    client.ask(transmit_speed(UINT32_MAX));
    EXPECT_EQ(client.ask(download_data(1)).size(), (1 << 20) - 1 + 16 * 8 + 8);
}

TEST_F(NodeTest, EnciphersEachChunkByItself) {
    const std::string content = support::random_bytes(65536 + 100, 1);
    support::write_file(served_.storage() + "c", content);
    Client client(served_);
    std::string prepare = download_prepare("c");
    prepare[2] = 1;
    client.ask(prepare);
    std::string stream = client.ask(download_data(0));
    while (stream.size() < 8 + 65552 + 8 + 112) {
        client.send_ready();
        stream += client.connection.take_sent();
    }
    const message::PayloadKey key = message::make_payload_key();
    std::string plain;
    for (const auto& [begin, length] : {std::pair{8, 65552}, std::pair{8 + 65552 + 8, 112}}) {
        ByteArray block;
        ASSERT_TRUE(aes_ecb_decrypt_data(
            key.data(), key.size(), reinterpret_cast<const std::uint8_t*>(stream.data()) + begin,
            static_cast<std::uint64_t>(length), block));
        plain.append(block.begin(), block.end());
    }
    EXPECT_EQ(plain, content);
}

TEST_F(NodeTest, ComesOutOfThePoolAsNewButForItsSpeedLimit) {
    NodeRecord record;
    std::uint64_t id = 0;
    {
        Client client(served_);
        client.ask(transmit_speed(UINT32_MAX));
        client.ask(wire(message::SetUserInformationRequest{.type = 18, .text_length = 7}) +
                   R"({"a":1})");
        client.ask(upload_prepare("p", 5, time) + upload_data("he"));
        auto* node = static_cast<NorvaneTransmitNode*>(INorvaneSession::of(client.connection));
        id = node->get_node_record(record).node_id;
        EXPECT_STREQ(record.node_user_info, R"({"a":1})");
        EXPECT_EQ(record.node_type, NodeType::upload);
        EXPECT_STREQ(record.node_filename, (served_.storage() + "p").c_str());
    }
    std::vector<std::unique_ptr<Client>> clients;
    do {
        clients.push_back(std::make_unique<Client>(served_));
        auto* node =
            static_cast<NorvaneTransmitNode*>(INorvaneSession::of(clients.back()->connection));
        node->get_node_record(record);
    } while (record.node_id != id && clients.size() < 1000);
    ASSERT_EQ(record.node_id, id);
    EXPECT_STREQ(record.node_user_info, "{}");
    EXPECT_STREQ(record.node_filename, "");
    EXPECT_EQ(record.node_type, NodeType::message);
    support::write_file(served_.storage() + "m", std::string(1 << 20, 'm'));
    EXPECT_EQ(clients.back()->ask(download_prepare("m") + download_data(0)).size(),
              24 + (1 << 20) + 17 * 8);
}

TEST_F(NodeTest, RefusesASecondBinding) {
    Client client(served_);
    ScriptedConnection second;
    EXPECT_FALSE(INorvaneSession::of(client.connection)->recv_connect_response(&second));
    EXPECT_NE(served_.run_log().find("recv unexpected connect response"), std::string::npos);
    EXPECT_EQ(client.ask(type_only<message::CleanupConnection>()).size(), 4U);
}

TEST_F(NodeTest, LosesNothingInARenameThatFails) {
    Client client(served_);
    support::write_file(served_.storage() + "kept", "kept");
    support::write_file(served_.storage() + "d/inside", "inside");
    for (const auto& [from, to] : std::vector<std::pair<std::string, std::string>>{
             {"missing", "kept"}, {"kept", "kept"}, {"d", "d/inside"}, {"kept", "d"}}) {
        EXPECT_EQ(client.status_of(rename_request(from, to)), message::status_rename_failed)
            << from << " -> " << to;
    }
    EXPECT_EQ(stored("kept") + stored("d/inside"), "keptinside");
    EXPECT_EQ(client.status_of(rename_request("d", "kept")), message::status_ok);
    EXPECT_EQ(stored("kept/inside"), "inside");
}

TEST_F(NodeTest, DeletesNoRoot) {
    Client client(served_);
    for (const char* path : {"", "/", "..", "x/.."}) {
        EXPECT_EQ(client.status_of(path_request<message::DeletePath>(path)),
                  message::status_delete_failed);
    }
    EXPECT_TRUE(Kestin::Base::kestin_access_safe((served_.storage() + ".kept").c_str()));
}

TEST(UploadPlanTest, DecidesByTargetAndTemporaryFile) {
    const FileFacts announced{.exists = false, .size = 10, .time = 7};
    const FileFacts none;
    const FileFacts whole{.exists = true, .size = 10, .time = 7};
    const FileFacts part{.exists = true, .size = 4, .time = 7};
    const FileFacts too_long{.exists = true, .size = 11, .time = 7};
    const FileFacts other_time{.exists = true, .size = 10, .time = 8};
    for (const FileFacts& temporary : {none, whole, part, too_long, other_time}) {
        EXPECT_EQ(plan_upload(whole, temporary, announced), UploadPlan::already_complete);
    }
    for (const FileFacts& target : {none, part, too_long, other_time}) {
        EXPECT_EQ(plan_upload(target, whole, announced), UploadPlan::finish_temporary);
        EXPECT_EQ(plan_upload(target, part, announced), UploadPlan::continue_temporary);
        EXPECT_EQ(plan_upload(target, too_long, announced), UploadPlan::start_over);
        EXPECT_EQ(plan_upload(target, other_time, announced), UploadPlan::start_over);
        EXPECT_EQ(plan_upload(target, none, announced), UploadPlan::start_over);
    }
    // A missing file has size and time 0, and is still no file of that size and time.
    EXPECT_EQ(plan_upload(none, none, FileFacts{}), UploadPlan::start_over);
}

TEST(UserInformationTest, KeepsWhatCanStandInADocument) {
    const std::string longest = "{" + std::string(1021, 'x') + "}";
    EXPECT_EQ(clean_user_information(" \t\v\r\n\f{a\\b\\\\}\f "), "{ab}");
    EXPECT_EQ(clean_user_information(longest), longest);
    for (const std::string& text :
         {""s, "name=x"s, "{"s + "\0}"s, "}{"s, "{x} y"s, "{x" + longest}) {
        EXPECT_EQ(clean_user_information(text), "{}");
    }
}

TEST(RateWindowTest, TurnsAfterThirtySecondsAndGoesStaleAfterFortyFive) {
    RateWindow window;
    EXPECT_TRUE(window.is_stale(1000));
    window.turn(1000);
    window.count_in(300);
    window.count_out(50);
    EXPECT_EQ(window.speed(NodeType::upload, 1000), 300);
    EXPECT_EQ(window.speed(NodeType::download, 1010), 5);
    EXPECT_EQ(window.speed(NodeType::message, 1010), 35);
    window.turn(1030);
    EXPECT_EQ(window.speed(NodeType::upload, 1030), 10);
    EXPECT_FALSE(window.is_stale(1044));
    EXPECT_TRUE(window.is_stale(1045));
    window.turn(1031);
    EXPECT_EQ(window.speed(NodeType::upload, 1031), 0);
}

TEST(LiveNodeRecordTest, IsCopiedWholeWhileItIsWritten) {
    LiveNodeRecord live;
    live.reset(1);
    std::thread writer([&live] {
        for (std::size_t round = 0; round < 20'000; ++round) {
            live.set_transfer(NodeType::upload, std::string(round % 900 + 1, 'x'), 1, 1);
            live.set_user_info("{" + std::string(round % 900, 'u') + "}");
        }
    });
    NodeRecord record;
    for (int round = 0; round < 20'000; ++round) {
        live.copy_to(record);
        const std::string_view info = record.node_user_info;
        ASSERT_TRUE(info.starts_with('{') && info.ends_with('}')) << info;
    }
    writer.join();
}

}  // namespace
