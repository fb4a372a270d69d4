#include "tests/system/requests.h"

#include <stdexcept>

#include "aes_ecb/aes_ecb.h"
#include "src/message/catalogue.h"
#include "src/message/payload_key.h"

namespace request {

namespace {

template <message::WireRecord Record>
std::string bytes_of(Record record) {
    message::to_network_order(record);
    return {reinterpret_cast<const char*>(&record), sizeof record};
}

template <typename Row>
std::string type_alone() {
    return bytes_of(message::TypeOnlyRequest{Row::type});
}

template <typename Row>
std::string on_path(std::string_view path, Place place) {
    message::PathRequest record{};
    record.type = Row::type;
    record.storage_id = place.storage_id;
    record.user_id = place.user_id;
    record.path_length = static_cast<std::uint16_t>(path.size());
    return bytes_of(record).append(path);
}

}  // namespace

std::string upload_file_prepare(const Upload& upload) {
    message::UploadFilePrepareRequest record{};
    record.type = message::UploadFilePrepare::type;
    record.encrypted = upload.encrypted ? 1 : 0;
    record.storage_id = upload.storage_id;
    record.user_id = upload.user_id;
    record.file_size = upload.size;
    record.file_time = upload.time;
    record.path_length = static_cast<std::uint16_t>(upload.path.size());
    return bytes_of(record).append(upload.path);
}

std::string upload_file_data(std::string_view data) {
    message::UploadFileDataRequest record{};
    record.type = message::UploadFileData::type;
    record.data_length = static_cast<std::uint32_t>(data.size());
    return bytes_of(record).append(data);
}

std::string upload_file_finish() {
    return type_alone<message::UploadFileFinish>();
}

std::string download_file_prepare(const Download& download) {
    message::DownloadFilePrepareRequest record{};
    record.type = message::DownloadFilePrepare::type;
    record.encrypted = download.encrypted ? 1 : 0;
    record.storage_id = download.storage_id;
    record.user_id = download.user_id;
    record.path_length = static_cast<std::uint16_t>(download.path.size());
    return bytes_of(record).append(download.path);
}

std::string download_file_data(std::int64_t offset) {
    message::DownloadFileDataRequest record{};
    record.type = message::DownloadFileData::type;
    record.offset = offset;
    return bytes_of(record);
}

std::string download_file_finish() {
    return type_alone<message::DownloadFileFinish>();
}

std::string create_directory(std::string_view path, Place place) {
    return on_path<message::CreateDirectory>(path, place);
}

std::string delete_path(std::string_view path, Place place) {
    return on_path<message::DeletePath>(path, place);
}

std::string rename_path(std::string_view from, std::string_view to, Place place) {
    message::RenamePathRequest record{};
    record.type = message::RenamePath::type;
    record.storage_id = place.storage_id;
    record.user_id = place.user_id;
    record.old_path_length = static_cast<std::uint16_t>(from.size());
    record.new_path_length = static_cast<std::uint16_t>(to.size());
    return bytes_of(record).append(from).append(to);
}

std::string set_user_information(std::string_view text) {
    return bytes_of(message::SetUserInformationRequest{message::SetUserInformation::type,
                                                       static_cast<std::uint16_t>(text.size())})
        .append(text);
}

std::string get_storage_information() {
    return type_alone<message::GetStorageInformation>();
}

std::string get_norvane_node_count() {
    return type_alone<message::GetNorvaneNodeCount>();
}

std::string set_transmit_speed(std::uint32_t bytes_per_second) {
    message::SetTransmitSpeedRequest record{};
    record.type = message::SetTransmitSpeed::type;
    record.send_speed = bytes_per_second;
    return bytes_of(record);
}

std::string check_storage_id(std::uint32_t storage_id) {
    message::CheckStorageIdRequest record{};
    record.type = message::CheckStorageId::type;
    record.storage_id = storage_id;
    return bytes_of(record);
}

std::string get_path_content(std::string_view path, Place place) {
    return on_path<message::GetPathContent>(path, place);
}

std::string test_upload_data(std::string_view data) {
    return bytes_of(message::TestDataRequest{message::TestUploadData::type,
                                             static_cast<std::uint16_t>(data.size())})
        .append(data);
}

std::string test_download_data(std::uint16_t length) {
    return bytes_of(message::TestDataRequest{message::TestDownloadData::type, length});
}

std::string cleanup_connection() {
    return type_alone<message::CleanupConnection>();
}

std::string enciphered(std::string_view plain) {
    constexpr message::PayloadKey key = message::make_payload_key();
    ByteArray cipher_text;
    if (!aes_ecb_encrypt_data(key.data(), key.size(),
                              reinterpret_cast<const std::uint8_t*>(plain.data()), plain.size(),
                              cipher_text)) {
        throw std::runtime_error("can't encipher");
    }
    return {cipher_text.begin(), cipher_text.end()};
}

}  // namespace request
