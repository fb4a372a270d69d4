#include "bench/driver.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include "aes_ecb/aes_ecb.h"
#include "bench/socket.h"
#include "src/message/catalogue.h"
#include "src/message/payload_key.h"
#include "src/message/status.h"

namespace {

constexpr std::int64_t chunk = 65536;  // file data of a message, both ways

// PKCS#7 fills up to the next whole block of 16 bytes, at least one byte.
std::int64_t wire_length(std::int64_t plain, bool encrypted) {
    return encrypted ? (plain / 16 + 1) * 16 : plain;
}

// All bytes of a download's stream, the closing response included.
std::uint64_t stream_length(const Transfer& transfer) {
    constexpr std::int64_t header = sizeof(message::DataResponse);
    const std::int64_t whole = transfer.size / chunk;
    const std::int64_t rest = transfer.size % chunk;
    std::int64_t length = whole * (header + wire_length(chunk, transfer.encrypted)) + header;
    if (rest > 0) {
        length += header + wire_length(rest, transfer.encrypted);
    }
    return static_cast<std::uint64_t>(length);
}

template <typename Record>
void send_request(const Socket& socket, Record record, const std::string& tail = "") {
    message::to_network_order(record);
    socket.send_record(record);
    socket.send(std::as_bytes(std::span(tail)));
}

template <typename Row>
typename Row::Response receive_response(const Socket& socket, message::Status wanted) {
    auto response = socket.receive_record<typename Row::Response>();
    message::to_host_order(response);
    if (response.type != Row::response_type || response.status != wanted) {
        throw std::runtime_error("message " + std::to_string(response.type) + " with status " +
                                 std::to_string(response.status));
    }
    return response;
}

void download(const Socket& socket, const Transfer& transfer) {
    const std::string path = source_name;
    message::DownloadFilePrepareRequest prepare{};
    prepare.type = message::DownloadFilePrepare::type;
    prepare.encrypted = transfer.encrypted ? 1 : 0;
    prepare.storage_id = 1;
    prepare.path_length = static_cast<std::uint16_t>(path.size());
    send_request(socket, prepare, path);
    receive_response<message::DownloadFilePrepare>(socket, message::status_ok);

    message::DownloadFileDataRequest data{};
    data.type = message::DownloadFileData::type;
    send_request(socket, data);
    socket.discard(stream_length(transfer));

    send_request(socket, message::TypeOnlyRequest{message::DownloadFileFinish::type});
    receive_response<message::DownloadFileFinish>(socket, message::status_ok);
}

// A whole upload_file_data message with that many plain bytes.
std::vector<std::byte> data_message(std::int64_t plain_length, bool encrypted) {
    constexpr message::PayloadKey key = message::make_payload_key();
    ByteArray data(static_cast<std::size_t>(plain_length), 'x');
    if (encrypted) {
        ByteArray cipher_text;
        aes_ecb_encrypt_data(key.data(), key.size(), data.data(), data.size(), cipher_text);
        data = cipher_text;
    }
    message::UploadFileDataRequest header{};
    header.type = message::UploadFileData::type;
    header.data_length = static_cast<std::uint32_t>(data.size());
    message::to_network_order(header);
    std::vector<std::byte> message(sizeof header);
    std::ranges::copy(std::as_bytes(std::span(&header, 1)), message.begin());
    std::ranges::copy(std::as_bytes(std::span(data)), std::back_inserter(message));
    return message;
}

void upload(const Socket& socket, const Transfer& transfer) {
    const std::string path = target_name;
    message::UploadFilePrepareRequest prepare{};
    prepare.type = message::UploadFilePrepare::type;
    prepare.encrypted = transfer.encrypted ? 1 : 0;
    prepare.storage_id = 1;
    prepare.file_size = transfer.size;
    prepare.file_time = 1;
    prepare.path_length = static_cast<std::uint16_t>(path.size());
    send_request(socket, prepare, path);
    receive_response<message::UploadFilePrepare>(socket, message::status_file_incomplete);

    const std::vector<std::byte> whole = data_message(chunk, transfer.encrypted);
    for (std::int64_t left = transfer.size / chunk; left > 0; --left) {
        socket.send(whole);
    }
    if (transfer.size % chunk > 0) {
        socket.send(data_message(transfer.size % chunk, transfer.encrypted));
    }
    send_request(socket, message::TypeOnlyRequest{message::UploadFileFinish::type});
    receive_response<message::UploadFileFinish>(socket, message::status_ok);
}

}  // namespace

std::chrono::duration<double> drive(std::uint16_t port, const Transfer& transfer) {
    const Socket socket = Socket::connect_to(port);
    const auto start = std::chrono::steady_clock::now();
    if (transfer.direction == Direction::down) {
        download(socket, transfer);
    } else {
        upload(socket, transfer);
    }
    return std::chrono::steady_clock::now() - start;
}
