#pragma once

#include <sys/uio.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "client/error.h"
#include "client/remote.h"
#include "client/wait_limits.h"

namespace transmit {

namespace detail {
class Wire;
}

// How an upload goes on after its prepare.
struct UploadStart {
    bool complete;        // the server has this very file: nothing to send and nothing to finish
    std::int64_t offset;  // else: where in the file to go on
};

// What lies at a path.
struct PathContent {
    bool is_folder;
    std::string document;  // of a folder: its listing in XML, for parse_listing
};

// The longest message of test data.
inline constexpr std::uint16_t longest_test = 65535;

// The most blocks of file data that are sent in one go.
inline constexpr std::size_t most_blocks = 16;

// One connection to a server, and its 18 requests. Each function sends one request and waits for
// the response; a failing status is an error of kind refused and leaves the connection usable,
// every other error closes it. Not for several threads at once.
class Connection {
  public:
    static Result<Connection> open(const Endpoint& endpoint, WaitLimits limits = {});

    Result<UploadStart> upload_file_prepare(const RemotePath& path, const FileStamp& stamp,
                                            bool encrypted);
    // Sends the prepare of a file of which the server is known to have nothing, and waits for no
    // answer: its data may follow at once. That the server began otherwise is told, as
    // file_changed, by upload_failure or upload_file_finish.
    Result<void> upload_file_begin(const RemotePath& path, const FileStamp& stamp, bool encrypted);
    // Blocks of file data, at most most_blocks, each already enciphered if the upload is: a message
    // each, and as a rule one system call for all. The server is silent unless one fails; then its
    // answer waits, and upload_failure tells it.
    Result<void> upload_file_data(std::span<const iovec> blocks);
    // The failure that the server reported of a block or of the beginning, if one has arrived.
    Result<void> upload_failure();
    Result<void> upload_file_finish();

    Result<FileStamp> download_file_prepare(const RemotePath& path, bool encrypted);
    // The prepare, and the request for the data of the whole file, with one write.
    Result<FileStamp> download_file(const RemotePath& path, bool encrypted);
    // Sends only: the answer is a stream of DataResponse records, until one without data.
    Result<void> download_file_data(std::int64_t offset);
    Result<void> download_file_finish();

    Result<void> create_directory(const RemotePath& path);
    // What doesn't exist counts as deleted; folders go with all they hold.
    Result<void> delete_path(const RemotePath& path);
    Result<void> rename_path(const RemotePath& old_path, std::string_view new_path);
    Result<PathContent> get_path_content(const RemotePath& path);

    // The list of storages in XML, for parse_storages.
    Result<std::string> get_storage_information();
    Result<void> check_storage_id(std::uint32_t storage_id);
    // Connections of the server's transmit port, this one included, modulo 65536.
    Result<std::uint16_t> get_norvane_node_count();

    // One JSON object that describes this client to the server's list of connections.
    Result<void> set_user_information(std::string_view json);
    // Bytes per second and batch of a download; 0, the start, makes each batch one block.
    Result<void> set_transmit_speed(std::uint32_t send_speed);
    // Ends whatever transfer runs on this connection.
    Result<void> cleanup_connection();

    // `size` bytes to the server, or from it.
    Result<void> test_upload_data(std::uint16_t size);
    Result<void> test_download_data(std::uint16_t size);

    // Bytes as they come, at most `size` and at least one.
    Result<std::size_t> receive_some(void* data, std::size_t size);

    bool cancelled() const;
    bool is_open() const;
    void close();

    // The records below, for requests sent ahead; for the library itself.
    detail::Wire& wire() { return *wire_; }

    Connection(Connection&& other) noexcept;
    Connection& operator=(Connection&& other) noexcept;
    ~Connection();

  private:
    explicit Connection(std::unique_ptr<detail::Wire> wire);

    Result<void> send_upload_prepare(const RemotePath& path, const FileStamp& stamp,
                                     bool encrypted);
    Result<UploadStart> receive_upload_prepared(std::int64_t size);
    Result<void> receive_upload_begun();
    Result<FileStamp> receive_download_prepared();

    std::unique_ptr<detail::Wire> wire_;
    std::optional<std::int64_t> begins_;  // the size of an upload whose prepare isn't answered yet
};

}  // namespace transmit
