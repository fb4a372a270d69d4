#include "trials/model_client.h"

#include <gtest/gtest.h>

#include <array>

#include "tests/support/files.h"
#include "tests/system/http_peer.h"
#include "tests/system/listing.h"
#include "tests/system/server_test.h"

namespace trials {
namespace {

using message::status_file_incomplete;
using message::status_ok;

constexpr std::size_t largest_file = 200'000;
const std::string common_store = support::random_bytes(1 << 20, 3);

std::string parent_of(const std::string& path) {
    const std::size_t separator = path.rfind('/');
    return separator == std::string::npos ? "" : path.substr(0, separator);
}

bool is_below(const std::string& path, const std::string& folder) {
    return path.starts_with(folder + "/");
}

}  // namespace

ModelClient::ModelClient(const support::RunningServer& server, unsigned number)
    : server_(server), folder_("client " + std::to_string(number)), generator_(number) {
    connect();
    EXPECT_EQ(peer_->ask(request::create_directory(folder_)), status_ok);
}

void ModelClient::do_something() {
    using Operation = bool (ModelClient::*)();
    static constexpr std::array<Operation, 12> operations = {
        &ModelClient::upload,        &ModelClient::upload,   &ModelClient::upload,
        &ModelClient::download,      &ModelClient::download, &ModelClient::upload_with_a_break,
        &ModelClient::create_folder, &ModelClient::rename,   &ModelClient::remove,
        &ModelClient::list,          &ModelClient::list,     &ModelClient::look_around,
    };
    while (!(this->*operations.at(up_to(operations.size() - 1)))()) {
    }
    ++operations_;
}

void ModelClient::check_tree() {
    check_folder("");
    for (const auto& [path, entry] : tree_) {
        if (entry.is_folder) {
            check_folder(path);
        } else {
            check_file(path, entry);
        }
    }
}

bool ModelClient::upload() {
    const std::string path = some_path();
    if (!has_room_for(path) || is_folder(path)) {
        return false;
    }
    const Entry file = new_file();
    const bool encrypted = up_to(1) == 1;
    EXPECT_EQ(peer_->upload(announcement(path, file, encrypted), bytes_of(file)), status_ok);
    keep(path, file);
    return true;
}

// The connection ends in the middle, and the next one goes on from what is stored.
bool ModelClient::upload_with_a_break() {
    const std::string path = some_path();
    if (!has_room_for(path) || is_folder(path)) {
        return false;
    }
    const Entry file = new_file();
    const request::Upload upload = announcement(path, file, false);
    EXPECT_EQ(peer_->prepare(upload), (UploadPrepared{status_file_incomplete, 0}));
    const std::size_t stored = up_to(file.size);
    peer_->send_file_data(bytes_of(file).substr(0, stored), 10'000);
    EXPECT_EQ(peer_->ask(request::check_storage_id(1)), status_ok);
    if (up_to(1) == 1) {
        peer_->socket().reset();
    }
    connect();
    UploadPrepared prepared{};
    EXPECT_TRUE(await([&] {
        prepared = peer_->prepare(upload);
        return prepared.status != message::status_file_in_use;
    }));
    EXPECT_EQ(prepared.offset, stored);
    if (prepared.status == status_file_incomplete) {
        peer_->send_file_data(bytes_of(file).substr(stored));
        prepared.status = peer_->finish_upload();
    }
    EXPECT_EQ(prepared.status, status_ok);
    keep(path, file);
    return true;
}

bool ModelClient::download() {
    const std::string path = some_path();
    const auto found = tree_.find(path);
    if (found != tree_.end() && !found->second.is_folder) {
        check_file(path, found->second);
        return true;
    }
    const auto expected =
        found != tree_.end() ? message::status_path_is_directory : message::status_access_failed;
    EXPECT_EQ(peer_->prepare(request::Download{.path = on_server(path)}).status, expected);
    return true;
}

bool ModelClient::create_folder() {
    const std::string path = some_path();
    if (!has_room_for(path) || (tree_.contains(path) && !is_folder(path))) {
        return false;
    }
    EXPECT_EQ(peer_->ask(request::create_directory(on_server(path))), status_ok);
    keep(path, Entry{});
    return true;
}

// A file to another name, which it replaces if there is a file.
bool ModelClient::rename() {
    const std::string from = some_path();
    const std::string to = some_path();
    if (from == to || !tree_.contains(from) || is_folder(from) || is_folder(to) ||
        !is_folder(parent_of(to))) {
        return false;
    }
    EXPECT_EQ(peer_->ask(request::rename_path(on_server(from), on_server(to))), status_ok);
    const Entry moved = tree_.at(from);
    tree_.erase(from);
    keep(to, moved);
    return true;
}

bool ModelClient::remove() {
    const std::string path = some_path();
    EXPECT_EQ(peer_->ask(request::delete_path(on_server(path))), status_ok);
    erase(path);
    return true;
}

bool ModelClient::list() {
    check_folder(some_folder());
    return true;
}

bool ModelClient::look_around() {
    EXPECT_GE(peer_->node_count(), 1);
    EXPECT_EQ(peer_->ask(request::set_transmit_speed(up_to(1) == 1 ? 4294967295 : 0)), status_ok);
    HttpPeer browser(server_.command_port());
    EXPECT_EQ(browser.get("/sys/transmit_statistics").status, "200 OK");
    EXPECT_EQ(browser.get("/sys/transmit_list").status, "200 OK");
    return true;
}

std::string_view ModelClient::bytes_of(const Entry& file) {
    return std::string_view(common_store).substr(file.begin, file.size);
}

request::Upload ModelClient::announcement(const std::string& path, const Entry& file,
                                          bool encrypted) const {
    return {.path = on_server(path),
            .size = static_cast<std::int64_t>(file.size),
            .time = file.time,
            .encrypted = encrypted};
}

ModelClient::Entry ModelClient::new_file() {
    const std::size_t size = up_to(3) == 0 ? up_to(100) : up_to(largest_file);
    return {.is_folder = false,
            .begin = up_to(common_store.size() - largest_file),
            .size = size,
            .time = ++time_};
}

// Few names, so that they meet again and again; up to three levels.
std::string ModelClient::some_path() {
    std::string path(1, static_cast<char>('a' + up_to(5)));
    for (std::size_t depth = up_to(2); depth > 0; --depth) {
        path = std::string(1, static_cast<char>('A' + up_to(1))) + "/" + path;
    }
    return path;
}

std::string ModelClient::some_folder() {
    const std::string path = parent_of(some_path());
    return is_folder(path) ? path : "";
}

bool ModelClient::is_folder(const std::string& path) const {
    const auto found = tree_.find(path);
    return path.empty() || (found != tree_.end() && found->second.is_folder);
}

// No file stands in the place of one of its folders.
bool ModelClient::has_room_for(const std::string& path) const {
    for (std::string above = parent_of(path); !above.empty(); above = parent_of(above)) {
        if (tree_.contains(above) && !is_folder(above)) {
            return false;
        }
    }
    return true;
}

void ModelClient::keep(const std::string& path, const Entry& entry) {
    for (std::string above = parent_of(path); !above.empty(); above = parent_of(above)) {
        tree_.try_emplace(above);
    }
    tree_[path] = entry;
}

void ModelClient::erase(const std::string& path) {
    std::erase_if(tree_, [&path](const auto& item) {
        return item.first == path || is_below(item.first, path);
    });
}

void ModelClient::check_folder(const std::string& path) {
    const Document document = peer_->list(on_server(path));
    EXPECT_EQ(document.status, message::status_path_is_directory);
    std::map<std::string, listing::Element> expected;
    for (const auto& [item, entry] : tree_) {
        if (parent_of(item) == path) {
            const std::string name = item.substr(path.empty() ? 0 : path.size() + 1);
            expected[name] =
                entry.is_folder
                    ? listing::folder(name)
                    : listing::file(name, static_cast<std::int64_t>(entry.size), entry.time);
        }
    }
    EXPECT_TRUE(listing::by_name(document.text) == expected) << on_server(path) << document.text;
}

void ModelClient::check_file(const std::string& path, const Entry& file) {
    const bool encrypted = up_to(1) == 1;
    EXPECT_EQ(peer_->prepare(request::Download{.path = on_server(path), .encrypted = encrypted}),
              (DownloadPrepared{status_ok, static_cast<std::int64_t>(file.size), file.time}));
    const std::size_t from = up_to(file.size);
    const Stream stream = peer_->stream_from(static_cast<std::int64_t>(from), encrypted);
    EXPECT_EQ(stream.status, status_ok);
    EXPECT_EQ(support::sha256(stream.plain), support::sha256(bytes_of(file).substr(from)));
    EXPECT_EQ(peer_->finish_download(), status_ok);
}

std::size_t ModelClient::up_to(std::size_t most) {
    return std::uniform_int_distribution<std::size_t>(0, most)(generator_);
}

void ModelClient::connect() {
    peer_ = std::make_unique<Peer>(server_.transmit_port());
}

}  // namespace trials
