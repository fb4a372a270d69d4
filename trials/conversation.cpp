#include "trials/conversation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <stdexcept>

#include "tests/support/files.h"
#include "tests/system/http_peer.h"
#include "tests/system/listing.h"
#include "tests/system/server_test.h"
#include "tests/system/stored_file.h"

namespace trials {
namespace {

using namespace message;  // NOLINT(google-build-using-namespace): all of it is statuses

// Three blocks and a part of one.
constexpr std::size_t file_size = 200'000;

const std::string first_content = support::random_bytes(file_size, 1);
const std::string second_content = support::random_bytes(file_size, 2);
// So long that the server sets room aside for it.
const std::string long_content = support::random_bytes(1'500'000, 3);

}  // namespace

Conversation::Conversation(support::RunningServer& server, std::string folder, Excuses excuses)
    : server_(server), folder_(std::move(folder)), excuses_(std::move(excuses)) {
}

void Conversation::run() {
    perform([&] { await_solitude(); });
    perform([&] { create_folder("deep/er"); });
    perform([&] { upload("a", first_content, 1000); });
    perform([&] { upload("a", first_content, 1000); });
    perform([&] { upload("a", second_content, 2000); });
    perform([&] { break_off_upload("b", first_content, 3000); });
    perform([&] { upload("b", first_content, 3000); });
    perform([&] { upload("new/folder/c", long_content, 4000); });
    perform([&] { list(); });
    perform([&] { download("a", false); });
    perform([&] { download("b", true); });
    perform([&] { rename("a", "deep/a"); });
    perform([&] { rename("b", "deep/a"); });
    perform([&] { remove("deep/a"); });
    perform([&] { ask_for_figures(); });
    perform([&] { browse(); });
    perform([&] { remove(""); });
    peer_.reset();
}

// A connection that ended is followed by another one.
void Conversation::perform(const std::function<void()>& step) {
    try {
        if (peer_ == nullptr) {
            peer_ = std::make_unique<Peer>(server_.transmit_port());
        }
        step();
    } catch (const std::runtime_error& error) {
        EXPECT_TRUE(is_excused() && excuses_.connection_end) << error.what();
        peer_.reset();
    }
}

void Conversation::expect(const char* step, Status found, Status wanted,
                          std::initializer_list<Status> failures) const {
    const bool may_fail = is_excused();
    const bool is_failure = std::find(failures.begin(), failures.end(), found) != failures.end();
    EXPECT_TRUE(found == wanted || (may_fail && is_failure))
        << step << " was answered " << found << " in place of " << wanted;
}

std::string Conversation::on_disk(const std::string& name) const {
    return server_.storage_folder() + folder_ + "/" + name;
}

void Conversation::create_folder(const std::string& name) {
    const Status status = peer_->ask(request::create_directory(folder_ + "/" + name));
    expect("create_directory", status, status_ok, {status_create_directory_failed});
    EXPECT_TRUE(status != status_ok || std::filesystem::is_directory(on_disk(name)));
}

void Conversation::upload(const std::string& name, const std::string& bytes, std::int64_t time) {
    const request::Upload announced{
        .path = folder_ + "/" + name, .size = std::ssize(bytes), .time = time};
    const UploadPrepared prepared = peer_->prepare(announced);
    Status status = prepared.status;
    if (status == status_file_incomplete) {
        const auto stored = static_cast<std::size_t>(prepared.offset);
        EXPECT_TRUE(support::read_file(on_disk(name + ".tcp")) == bytes.substr(0, stored));
        status = send_rest(bytes.substr(stored));
    }
    expect("upload", status, status_ok,
           {status_acquire_event_failed, status_create_directory_failed, status_open_write_failed,
            status_write_failed, status_rename_failed, status_delete_failed, status_file_incomplete,
            status_file_in_use});
    if (status == status_ok) {
        EXPECT_TRUE(support::read_file(on_disk(name)) == bytes) << "wrong bytes in " << name;
        EXPECT_TRUE(excuses_.file_facts || stored_file::time_of(on_disk(name)) == time);
    }
}

// A block that fails is answered, and the finish behind it then finds no upload.
Status Conversation::send_rest(const std::string& bytes) {
    peer_->send_file_data(bytes);
    peer_->send(request::upload_file_finish());
    const std::uint16_t type = peer_->receive_type();
    const auto first = peer_->receive_after<PlainResponse>(type);
    while (type == UploadFileData::response_type) {
        const std::uint16_t next = peer_->receive_type();
        const Status status{peer_->receive_after<PlainResponse>(next).status};
        EXPECT_EQ(status, status_invalid_connection_data);
        if (next == UploadFileFinish::response_type) {
            break;
        }
    }
    return static_cast<Status>(first.status);
}

void Conversation::break_off_upload(const std::string& name, const std::string& bytes,
                                    std::int64_t time) {
    const request::Upload announced{
        .path = folder_ + "/" + name, .size = std::ssize(bytes), .time = time};
    if (peer_->prepare(announced).status == status_file_incomplete) {
        peer_->send_file_data(bytes.substr(0, bytes.size() / 2));
    }
    // The connection ends, and with it the upload.
    peer_ = std::make_unique<Peer>(server_.transmit_port());
    await_solitude();
}

// Until the connections before this one have ended, on the server's side too.
void Conversation::await_solitude() {
    EXPECT_TRUE(await([&] { return peer_->node_count() == 1; }));
}

void Conversation::download(const std::string& name, bool encrypted) {
    const std::string bytes = support::read_file(on_disk(name));
    const DownloadPrepared prepared =
        peer_->prepare(request::Download{.path = folder_ + "/" + name, .encrypted = encrypted});
    const bool exists = stored_file::exists(on_disk(name));
    expect("download_file_prepare", prepared.status, exists ? status_ok : status_access_failed,
           {status_access_failed, status_path_stat_failed, status_acquire_event_failed});
    if (prepared.status != status_ok) {
        return;
    }
    EXPECT_EQ(prepared.size, std::ssize(bytes));
    const Stream stream = peer_->stream_from(0, encrypted);
    expect(
        "download_file_data", stream.status, status_ok,
        {status_open_read_failed, status_read_failed, status_seek_failed, status_encrypt_failed});
    EXPECT_TRUE(stream.status != status_ok || stream.plain == bytes) << "wrong bytes of " << name;
    const Status finished = peer_->finish_download();
    EXPECT_EQ(finished, stream.status == status_ok ? status_ok : status_invalid_connection_data);
}

void Conversation::list() {
    const Document document = peer_->list(folder_);
    expect("get_path_content", document.status,
           std::filesystem::exists(on_disk("")) ? status_path_is_directory : status_access_failed,
           {status_access_failed, status_path_stat_failed, status_open_directory_failed,
            status_make_folder_content_failed});
    if (document.status != status_path_is_directory) {
        return;
    }
    std::map<std::string, listing::Element> listed;
    EXPECT_NO_THROW(listed = listing::by_name(document.text)) << document.text;
    std::map<std::string, listing::Element> standing;
    for (const auto& entry : std::filesystem::directory_iterator(on_disk(""))) {
        const std::string name = entry.path().filename();
        standing[name] = entry.is_directory()
                             ? listing::folder(name)
                             : listing::file(name, static_cast<std::int64_t>(entry.file_size()),
                                             stored_file::time_of(entry.path()));
    }
    EXPECT_TRUE(excuses_.file_facts ? listed.size() == standing.size() : listed == standing)
        << document.text;
}

void Conversation::rename(const std::string& from, const std::string& to) {
    const std::string moved = support::read_file(on_disk(from));
    const bool exists = stored_file::exists(on_disk(from));
    const Status status =
        peer_->ask(request::rename_path(folder_ + "/" + from, folder_ + "/" + to));
    expect("rename_path", status, exists ? status_ok : status_rename_failed,
           {status_rename_failed});
    if (status == status_ok) {
        EXPECT_FALSE(stored_file::exists(on_disk(from)));
        EXPECT_TRUE(support::read_file(on_disk(to)) == moved);
    } else {
        EXPECT_EQ(stored_file::exists(on_disk(from)), exists) << from << " is lost";
    }
}

void Conversation::remove(const std::string& name) {
    const Status status = peer_->ask(request::delete_path(folder_ + "/" + name));
    expect("delete_path", status, status_ok, {status_delete_failed});
    EXPECT_TRUE(status != status_ok || !stored_file::exists(on_disk(name)))
        << name << " is still there";
}

void Conversation::ask_for_figures() {
    EXPECT_EQ(peer_->ask(request::set_user_information(R"({"name":"trial"})")), status_ok);
    EXPECT_GE(peer_->node_count(), 1);
    const Document storages = peer_->storage_information();
    expect("get_storage_information", storages.status, status_ok,
           {status_make_storage_information_failed});
    if (storages.status == status_ok) {
        EXPECT_NO_THROW(EXPECT_EQ(listing::parse(storages.text).size(), 1U)) << storages.text;
    }
}

void Conversation::browse() {
    HttpPeer browser(server_.command_port());
    for (const char* command : {"/sys/transmit_list", "/sys/transmit_statistics"}) {
        EXPECT_EQ(browser.get(command).status, "200 OK");
    }
    const Answer page = browser.get("/main.html");
    if (page.status == "200 OK") {
        const std::string bytes = support::read_file(server_.root().path() + "www/main.html");
        EXPECT_TRUE(page.body == bytes || excuses_.page_bytes);
    } else {
        EXPECT_TRUE(is_excused()) << page;
    }
}

}  // namespace trials
