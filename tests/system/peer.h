#pragma once

#include <chrono>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "src/message/catalogue.h"
#include "src/message/status.h"
#include "tests/support/raw_socket.h"
#include "tests/system/requests.h"

struct UploadPrepared {
    message::Status status;
    std::int64_t offset;

    bool operator==(const UploadPrepared&) const = default;
};
std::ostream& operator<<(std::ostream& out, const UploadPrepared& prepared);

struct DownloadPrepared {
    message::Status status;
    std::int64_t size;
    std::int64_t time;

    bool operator==(const DownloadPrepared&) const = default;
};
std::ostream& operator<<(std::ostream& out, const DownloadPrepared& prepared);

// A response with a document as its tail.
struct Document {
    message::Status status;
    std::string text;
};

// The data responses of one download, the closing one included.
struct Stream {
    message::Status status = message::status_ok;  // of the closing response
    std::string plain;                            // deciphered where the download is encrypted
    std::vector<std::uint32_t> lengths;           // of the tails as they came
};

// A client of the transmit port that sends what a test tells it to and takes the answers apart.
// What can't be sent, doesn't come in time or isn't the awaited message throws.
class Peer {
  public:
    static constexpr std::chrono::milliseconds default_limit = std::chrono::seconds(60);

    explicit Peer(std::uint16_t port, std::chrono::milliseconds limit = default_limit)
        : socket_(port, limit) {}

    support::RawSocket& socket() { return socket_; }

    void send(std::string_view bytes);
    std::string receive_bytes(std::size_t size);
    std::uint16_t receive_type();

    // The rest of a response whose type has been received, or, with it, all of one. In host order.
    template <message::WireRecord Record>
    Record receive_after(std::uint16_t type);
    template <typename Row>
    typename Row::Response receive();

    // Sends any request that is answered by a type and a status.
    message::Status ask(std::string_view request);

    UploadPrepared prepare(const request::Upload& upload);
    message::Status finish_upload() { return ask(request::upload_file_finish()); }

    // Sends the bytes in messages of that many plain bytes each, enciphered if so wanted.
    void send_file_data(std::string_view bytes, std::size_t block = 65536, bool encrypted = false);

    // A whole upload, from the offset that the server names to the finish.
    message::Status upload(const request::Upload& upload, std::string_view bytes);

    DownloadPrepared prepare(const request::Download& download);
    message::Status finish_download() { return ask(request::download_file_finish()); }

    // Sends a data request and receives its whole stream.
    Stream stream_from(std::int64_t offset, bool encrypted = false);
    // Receives data responses up to and with the closing one.
    Stream receive_stream(bool encrypted = false);

    Document list(std::string_view path, request::Place place = {});
    Document storage_information();
    std::uint16_t node_count();

  private:
    support::RawSocket socket_;
};

void expect_type(std::uint16_t expected, std::uint16_t found);

// The plain bytes of a data response's tail.
std::string deciphered(std::string_view cipher_text);

template <message::WireRecord Record>
Record Peer::receive_after(std::uint16_t type) {
    std::string bytes(sizeof type, '\0');
    bytes += receive_bytes(sizeof(Record) - sizeof type);
    Record record{};
    bytes.copy(reinterpret_cast<char*>(&record), sizeof record);
    message::to_host_order(record);
    record.type = type;
    return record;
}

template <typename Row>
typename Row::Response Peer::receive() {
    const std::uint16_t type = receive_type();
    expect_type(Row::response_type, type);
    return receive_after<typename Row::Response>(type);
}
