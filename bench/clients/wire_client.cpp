#include "bench/clients/wire_client.h"

#include <algorithm>
#include <stdexcept>

#include "aes_ecb/aes_ecb.h"
#include "src/message/catalogue.h"
#include "src/message/payload_key.h"
#include "src/message/status.h"

namespace bench {
namespace {

// Conversations or requests that are under way at a time.
constexpr int files_ahead = 16;
constexpr int requests_ahead = 256;

// PKCS#7 fills up to the next whole block of 16 bytes, at least one byte.
std::int64_t wire_length(std::int64_t plain, bool encrypted) {
    return encrypted ? (plain / 16 + 1) * 16 : plain;
}

// All bytes of a download's stream, the closing response included.
std::uint64_t stream_length(std::int64_t size, bool encrypted) {
    constexpr std::int64_t header = sizeof(message::DataResponse);
    const std::int64_t rest = size % chunk;
    std::int64_t length = size / chunk * (header + wire_length(chunk, encrypted)) + header;
    if (rest > 0) {
        length += header + wire_length(rest, encrypted);
    }
    return static_cast<std::uint64_t>(length);
}

template <typename Record>
void append(std::vector<std::byte>& bytes, Record record, const std::string& tail = "") {
    message::to_network_order(record);
    std::ranges::copy(std::as_bytes(std::span(&record, 1)), std::back_inserter(bytes));
    std::ranges::copy(std::as_bytes(std::span(tail)), std::back_inserter(bytes));
}

// A row's request with nothing set but its type.
template <typename Row>
typename Row::Request request_of() {
    typename Row::Request request{};
    request.type = Row::type;
    return request;
}

message::CheckStorageIdRequest storage_check() {
    auto request = request_of<message::CheckStorageId>();
    request.storage_id = 1;
    return request;
}

ByteArray enciphered(const ByteArray& plain) {
    constexpr message::PayloadKey key = message::make_payload_key();
    ByteArray cipher_text;
    aes_ecb_encrypt_data(key.data(), key.size(), plain.data(), plain.size(), cipher_text);
    return cipher_text;
}

// Sends and answers alternate so that at most `window` of `count` are unanswered.
void keep_ahead(int count, int window, auto send, auto await) {
    int answered = 0;
    for (int sent = 0; sent < count; ++sent) {
        if (sent - answered == window) {
            for (; answered < sent - window / 2; ++answered) {
                await();
            }
        }
        send(sent);
    }
    for (; answered < count; ++answered) {
        await();
    }
}

}  // namespace

WireClient::WireClient(std::uint16_t port, Manner manner)
    : socket_(Socket::connect_to(port)), incoming_(socket_), manner_(manner) {
}

template <typename Record>
void WireClient::send(Record record, const std::string& tail) {
    Bytes bytes;
    append(bytes, record, tail);
    socket_.send(bytes);
}

template <typename Row>
typename Row::Response WireClient::expect(std::uint16_t wanted) {
    const auto response = incoming_.take<typename Row::Response>();
    if (response.type != Row::response_type || response.status != wanted) {
        throw std::runtime_error("message " + std::to_string(response.type) + " with status " +
                                 std::to_string(response.status));
    }
    return response;
}

void WireClient::download(const std::string& name, std::int64_t size) {
    socket_.send(download_prepare(name));
    expect<message::DownloadFilePrepare>(message::status_ok);
    send(request_of<message::DownloadFileData>());
    incoming_.discard(stream_length(size, manner_.encrypted));
    send(request_of<message::DownloadFileFinish>());
    expect<message::DownloadFileFinish>(message::status_ok);
}

void WireClient::upload(const std::string& name, std::int64_t size) {
    socket_.send(upload_prepare(name, size));
    expect<message::UploadFilePrepare>(message::status_file_incomplete);
    for (std::int64_t left = size; left > 0; left -= chunk) {
        socket_.send(data_message(std::min(left, chunk)));
    }
    send(request_of<message::UploadFileFinish>());
    expect<message::UploadFileFinish>(message::status_ok);
}

void WireClient::download_all(const FileRow& files) {
    if (!manner_.ahead) {
        return Client::download_all(files);
    }
    const auto send_one = [&](int index) {
        Bytes bytes = download_prepare(files.name(index));
        append(bytes, request_of<message::DownloadFileData>());
        append(bytes, request_of<message::DownloadFileFinish>());
        socket_.send(bytes);
    };
    keep_ahead(files.count, files_ahead, send_one, [this] { expect_download(); });
}

void WireClient::upload_all(const FileRow& files) {
    if (!manner_.ahead) {
        return Client::upload_all(files);
    }
    const auto send_one = [&](int index) {
        Bytes bytes = upload_prepare(files.name(index), files.size);
        const Bytes& data = data_message(files.size);
        bytes.insert(bytes.end(), data.begin(), data.end());
        append(bytes, request_of<message::UploadFileFinish>());
        socket_.send(bytes);
    };
    keep_ahead(files.count, files_ahead, send_one, [this] { expect_upload(); });
}

void WireClient::expect_upload() {
    expect<message::UploadFilePrepare>(message::status_file_incomplete);
    expect<message::UploadFileFinish>(message::status_ok);
}

// Whether the closing response still comes depends on when the finish is read.
void WireClient::expect_download() {
    expect<message::DownloadFilePrepare>(message::status_ok);
    while (incoming_.peek<message::PlainResponse>().type ==
           message::DownloadFileData::response_type) {
        incoming_.discard(expect<message::DownloadFileData>(message::status_ok).data_length);
    }
    expect<message::DownloadFileFinish>(message::status_ok);
}

void WireClient::ask() {
    send(storage_check());
    expect<message::CheckStorageId>(message::status_ok);
}

void WireClient::ask_ahead(int count) {
    Bytes batch;
    for (int index = 0; index < requests_ahead / 2; ++index) {
        append(batch, storage_check());
    }
    const auto await = [this] {
        for (int index = 0; index < requests_ahead / 2; ++index) {
            expect<message::CheckStorageId>(message::status_ok);
        }
    };
    keep_ahead(
        2 * count / requests_ahead, 2, [&](int) { socket_.send(batch); }, await);
}

void WireClient::list(const std::string& folder) {
    auto request = request_of<message::GetPathContent>();
    request.storage_id = 1;
    request.path_length = static_cast<std::uint16_t>(folder.size());
    send(request, folder);
    incoming_.discard(
        expect<message::GetPathContent>(message::status_path_is_directory).data_length);
}

WireClient::Bytes WireClient::download_prepare(const std::string& name) const {
    auto request = request_of<message::DownloadFilePrepare>();
    request.encrypted = manner_.encrypted ? 1 : 0;
    request.storage_id = 1;
    request.path_length = static_cast<std::uint16_t>(name.size());
    Bytes bytes;
    append(bytes, request, name);
    return bytes;
}

WireClient::Bytes WireClient::upload_prepare(const std::string& name, std::int64_t size) const {
    auto request = request_of<message::UploadFilePrepare>();
    request.encrypted = manner_.encrypted ? 1 : 0;
    request.storage_id = 1;
    request.file_size = size;
    request.file_time = 1;
    request.path_length = static_cast<std::uint16_t>(name.size());
    Bytes bytes;
    append(bytes, request, name);
    return bytes;
}

const WireClient::Bytes& WireClient::data_message(std::int64_t plain_length) {
    if (plain_length != data_length_) {
        ByteArray data(static_cast<std::size_t>(plain_length), 'x');
        if (manner_.encrypted) {
            data = enciphered(data);
        }
        auto request = request_of<message::UploadFileData>();
        request.data_length = static_cast<std::uint32_t>(data.size());
        data_message_.clear();
        append(data_message_, request);
        std::ranges::copy(std::as_bytes(std::span(data)), std::back_inserter(data_message_));
        data_length_ = plain_length;
    }
    return data_message_;
}

}  // namespace bench
