#include "tests/system/peer.h"

#include <stdexcept>

#include "aes_ecb/aes_ecb.h"
#include "src/message/payload_key.h"

std::ostream& operator<<(std::ostream& out, const UploadPrepared& prepared) {
    return out << "status " << prepared.status << ", offset " << prepared.offset;
}

std::ostream& operator<<(std::ostream& out, const DownloadPrepared& prepared) {
    return out << "status " << prepared.status << ", size " << prepared.size << ", time "
               << prepared.time;
}

namespace {

std::uint16_t type_in(std::string_view message) {
    const auto byte = [&](std::size_t at) {
        return static_cast<unsigned char>(message[at]);
    };
    return static_cast<std::uint16_t>(byte(0) << 8 | byte(1));
}

message::Status status_in(const auto& response) {
    return static_cast<message::Status>(response.status);
}

}  // namespace

void expect_type(std::uint16_t expected, std::uint16_t found) {
    if (found != expected) {
        throw std::runtime_error("message " + std::to_string(found) + " came in place of " +
                                 std::to_string(expected));
    }
}

std::string deciphered(std::string_view cipher_text) {
    constexpr message::PayloadKey key = message::make_payload_key();
    ByteArray plain;
    if (!aes_ecb_decrypt_data(key.data(), key.size(),
                              reinterpret_cast<const std::uint8_t*>(cipher_text.data()),
                              cipher_text.size(), plain)) {
        throw std::runtime_error("can't decipher");
    }
    return {plain.begin(), plain.end()};
}

void Peer::send(std::string_view bytes) {
    if (!socket_.send(bytes)) {
        throw std::runtime_error("the server takes no more bytes");
    }
}

std::string Peer::receive_bytes(std::size_t size) {
    std::string bytes = socket_.receive(size);
    if (bytes.size() != size) {
        throw std::runtime_error("the server sent " + std::to_string(bytes.size()) + " of " +
                                 std::to_string(size) + " bytes");
    }
    return bytes;
}

std::uint16_t Peer::receive_type() {
    return type_in(receive_bytes(2));
}

message::Status Peer::ask(std::string_view request) {
    send(request);
    const std::uint16_t type = receive_type();
    expect_type(static_cast<std::uint16_t>(type_in(request) + 1), type);
    return status_in(receive_after<message::PlainResponse>(type));
}

UploadPrepared Peer::prepare(const request::Upload& upload) {
    send(request::upload_file_prepare(upload));
    const auto response = receive<message::UploadFilePrepare>();
    return {status_in(response), response.offset};
}

void Peer::send_file_data(std::string_view bytes, std::size_t block, bool encrypted) {
    for (std::size_t at = 0; at < bytes.size(); at += block) {
        const std::string_view plain = bytes.substr(at, block);
        send(encrypted ? request::upload_file_data(request::enciphered(plain))
                       : request::upload_file_data(plain));
    }
}

message::Status Peer::upload(const request::Upload& upload, std::string_view bytes) {
    const UploadPrepared prepared = prepare(upload);
    if (prepared.status != message::status_file_incomplete) {
        return prepared.status;
    }
    send_file_data(bytes.substr(static_cast<std::size_t>(prepared.offset)), 65536,
                   upload.encrypted);
    return finish_upload();
}

DownloadPrepared Peer::prepare(const request::Download& download) {
    send(request::download_file_prepare(download));
    const auto response = receive<message::DownloadFilePrepare>();
    return {status_in(response), response.file_size, response.file_time};
}

Stream Peer::stream_from(std::int64_t offset, bool encrypted) {
    send(request::download_file_data(offset));
    return receive_stream(encrypted);
}

Stream Peer::receive_stream(bool encrypted) {
    Stream stream;
    while (true) {
        const auto response = receive<message::DownloadFileData>();
        stream.status = status_in(response);
        if (response.data_length == 0) {
            return stream;
        }
        stream.lengths.push_back(response.data_length);
        const std::string tail = receive_bytes(response.data_length);
        stream.plain += encrypted ? deciphered(tail) : tail;
    }
}

Document Peer::list(std::string_view path, request::Place place) {
    send(request::get_path_content(path, place));
    const auto response = receive<message::GetPathContent>();
    return {status_in(response), receive_bytes(response.data_length)};
}

Document Peer::storage_information() {
    send(request::get_storage_information());
    const auto response = receive<message::GetStorageInformation>();
    return {status_in(response), receive_bytes(response.data_length)};
}

std::uint16_t Peer::node_count() {
    send(request::get_norvane_node_count());
    return receive<message::GetNorvaneNodeCount>().node_count;
}
