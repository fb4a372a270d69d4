#include "bench/limit/limit_connection.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include "bench/client.h"
#include "src/message/catalogue.h"
#include "src/message/payload_key.h"
#include "src/message/status.h"

namespace bench {
namespace {

constexpr message::PayloadKey key = message::make_payload_key();
// Answers that are gathered at most.
constexpr std::size_t gathered = 256UL * 1024;

}  // namespace

LimitConnection::LimitConnection(Socket socket, std::string folder)
    : socket_(std::move(socket)), folder_(std::move(folder)) {
}

void LimitConnection::serve() {
    while (true) {
        if (incoming_.waiting() == 0) {
            flush();
        }
        serve_one(incoming_.peek<message::TypeOnlyRequest>().type);
    }
}

void LimitConnection::serve_one(std::uint16_t type) {
    switch (type) {
        case message::UploadFilePrepare::type:
            return prepare_upload();
        case message::UploadFileData::type:
            return receive_data();
        case message::UploadFileFinish::type:
            return finish_upload();
        case message::DownloadFilePrepare::type:
            return prepare_download();
        case message::DownloadFileData::type:
            return send_stream();
        case message::DownloadFileFinish::type:
            return finish_download();
        case message::CheckStorageId::type:
            return check_storage_id();
        default:
            throw std::runtime_error("no such message");
    }
}

void LimitConnection::prepare_upload() {
    const auto request = incoming_.take<message::UploadFilePrepareRequest>();
    path_ = take_path(request.path_length);
    time_ = request.file_time;
    encrypted_ = request.encrypted != 0;
    file_ = LimitFile(path_ + ".tcp", O_WRONLY | O_CREAT | O_APPEND);
    message::UploadFilePrepareResponse response{};
    response.type = message::UploadFilePrepare::response_type;
    response.status = message::status_file_incomplete;
    answer(response);
}

void LimitConnection::receive_data() {
    flush();
    const auto header = incoming_.peek<message::UploadFileDataRequest>();
    const std::size_t length = sizeof header + header.data_length;
    const auto data = incoming_.at_least(length).subspan(sizeof header, header.data_length);
    file_.write(encrypted_ ? converted(data, false) : data);
    incoming_.drop(length);
}

void LimitConnection::finish_upload() {
    incoming_.take<message::TypeOnlyRequest>();
    file_.set_time(time_);
    file_ = LimitFile();
    if (std::rename((path_ + ".tcp").c_str(), path_.c_str()) != 0) {
        throw std::runtime_error("rename");
    }
    answer(message::PlainResponse{message::UploadFileFinish::response_type, message::status_ok});
}

void LimitConnection::prepare_download() {
    const auto request = incoming_.take<message::DownloadFilePrepareRequest>();
    encrypted_ = request.encrypted != 0;
    file_ = LimitFile(take_path(request.path_length), O_RDONLY);
    const struct stat facts = file_.facts();
    message::DownloadFilePrepareResponse response{};
    response.type = message::DownloadFilePrepare::response_type;
    response.file_size = facts.st_size;
    response.file_time = facts.st_mtim.tv_sec;
    answer(response);
}

void LimitConnection::send_stream() {
    file_.seek(incoming_.take<message::DownloadFileDataRequest>().offset);
    encrypted_ ? send_enciphered_stream() : send_plain_stream();
    const message::DataResponse closing = Frames::header_of(0);
    append(std::as_bytes(std::span(&closing, 1)));
}

void LimitConnection::send_plain_stream() {
    std::size_t got = Frames::chunk_size;
    while (got == Frames::chunk_size) {
        frames_->size = 0;
        for (std::size_t count = 0; count < Frames::most && got == Frames::chunk_size; ++count) {
            got = file_.read(frames_->room());
            if (got > 0) {
                frames_->commit(got);
            }
        }
        append(frames_->filled());
    }
}

void LimitConnection::send_enciphered_stream() {
    frames_->size = 0;
    while (const std::size_t got = file_.read(frames_->room())) {
        const auto cipher_text = converted(frames_->room().first(got), true);
        const message::DataResponse header = Frames::header_of(cipher_text.size());
        flush();
        socket_.send(std::as_bytes(std::span(&header, 1)), cipher_text);
    }
}

void LimitConnection::finish_download() {
    incoming_.take<message::TypeOnlyRequest>();
    file_ = LimitFile();
    answer(message::PlainResponse{message::DownloadFileFinish::response_type, message::status_ok});
}

void LimitConnection::check_storage_id() {
    incoming_.take<message::CheckStorageIdRequest>();
    answer(message::PlainResponse{message::CheckStorageId::response_type, message::status_ok});
}

std::string LimitConnection::take_path(std::size_t length) {
    const auto bytes = incoming_.at_least(length).first(length);
    std::string path = folder_ + std::string(reinterpret_cast<const char*>(bytes.data()), length);
    incoming_.drop(length);
    return path;
}

std::span<const std::byte> LimitConnection::converted(std::span<const std::byte> data,
                                                      bool encrypt) {
    const auto convert = encrypt ? aes_ecb_encrypt_data : aes_ecb_decrypt_data;
    if (!convert(key.data(), key.size(), reinterpret_cast<const std::uint8_t*>(data.data()),
                 data.size(), converted_)) {
        throw std::runtime_error("cipher");
    }
    return std::as_bytes(std::span(converted_));
}

template <typename Record>
void LimitConnection::answer(Record record) {
    message::to_network_order(record);
    append(std::as_bytes(std::span(&record, 1)));
}

// What is large goes out from where it lies.
void LimitConnection::append(std::span<const std::byte> bytes) {
    if (bytes.size() >= Frames::chunk_size) {
        flush();
        return socket_.send(bytes);
    }
    outgoing_.insert(outgoing_.end(), bytes.begin(), bytes.end());
    if (outgoing_.size() > gathered) {
        flush();
    }
}

void LimitConnection::flush() {
    if (!outgoing_.empty()) {
        socket_.send(outgoing_);
        outgoing_.clear();
    }
}

}  // namespace bench
