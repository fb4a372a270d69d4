#pragma once

#include <cstddef>
#include <cstdint>

#include "src/message/wire.h"

// The fixed records of the wire, one struct a shape, requests and then responses in the order of
// their types. Integers are in network order on the wire; reserved bytes are sent as 0 and ignored
// when received. The assertions behind the structs are the layout, byte for byte.
namespace message {

// Types 4, 10, 20, 22 and 34: upload_file_finish, download_file_finish,
// get_storage_information, get_norvane_node_count and cleanup_connection.
struct TypeOnlyRequest {
    std::uint16_t type;

    void visit_integers(auto visit) { visit(type); }
};

// Type 0, then `path_length` bytes of path. `file_size` and `file_time` are those of the client's
// file; the time is in whole seconds since 1970-01-01 UTC.
struct UploadFilePrepareRequest {
    std::uint16_t type;
    std::uint8_t encrypted;
    std::uint8_t reserved_3;
    std::uint32_t storage_id;
    std::uint32_t user_id;
    std::uint8_t reserved_12[4];
    std::int64_t file_size;
    std::int64_t file_time;
    std::uint16_t path_length;
    std::uint8_t reserved_34[6];

    void visit_integers(auto visit) {
        visit(type, encrypted, storage_id, user_id, file_size, file_time, path_length);
    }
};

// Type 2, then `data_length` bytes of file data, enciphered if the transfer is.
struct UploadFileDataRequest {
    std::uint16_t type;
    std::uint8_t reserved_2[2];
    std::uint32_t data_length;

    void visit_integers(auto visit) { visit(type, data_length); }
};

// Type 6, then `path_length` bytes of path.
struct DownloadFilePrepareRequest {
    std::uint16_t type;
    std::uint8_t encrypted;
    std::uint8_t reserved_3;
    std::uint32_t storage_id;
    std::uint32_t user_id;
    std::uint16_t path_length;
    std::uint8_t reserved_14[2];

    void visit_integers(auto visit) { visit(type, encrypted, storage_id, user_id, path_length); }
};

// Type 8. The stream starts at `offset` of the plain file.
struct DownloadFileDataRequest {
    std::uint16_t type;
    std::uint8_t reserved_2[6];
    std::int64_t offset;

    void visit_integers(auto visit) { visit(type, offset); }
};

// Types 12, 14 and 28: create_directory, delete_path and get_path_content, then `path_length` bytes
// of path.
struct PathRequest {
    std::uint16_t type;
    std::uint8_t reserved_2[2];
    std::uint32_t storage_id;
    std::uint32_t user_id;
    std::uint16_t path_length;
    std::uint8_t reserved_14[2];

    void visit_integers(auto visit) { visit(type, storage_id, user_id, path_length); }
};

// Type 16, then both paths.
struct RenamePathRequest {
    std::uint16_t type;
    std::uint8_t reserved_2[2];
    std::uint32_t storage_id;
    std::uint32_t user_id;
    std::uint16_t old_path_length;
    std::uint16_t new_path_length;

    void visit_integers(auto visit) {
        visit(type, storage_id, user_id, old_path_length, new_path_length);
    }
};

// Type 18, then `text_length` bytes of text.
struct SetUserInformationRequest {
    std::uint16_t type;
    std::uint16_t text_length;

    void visit_integers(auto visit) { visit(type, text_length); }
};

// Type 24. Bytes per second; nothing acts on `second_speed`.
struct SetTransmitSpeedRequest {
    std::uint16_t type;
    std::uint8_t reserved_2[2];
    std::uint32_t send_speed;
    std::uint32_t second_speed;

    void visit_integers(auto visit) { visit(type, send_speed, second_speed); }
};

// Type 26.
struct CheckStorageIdRequest {
    std::uint16_t type;
    std::uint8_t reserved_2[2];
    std::uint32_t storage_id;

    void visit_integers(auto visit) { visit(type, storage_id); }
};

// Type 30, test_upload_data, then `data_length` bytes; type 32, test_download_data, without a tail:
// there it is the length of the answer's.
struct TestDataRequest {
    std::uint16_t type;
    std::uint16_t data_length;

    void visit_integers(auto visit) { visit(type, data_length); }
};

// Types 3, 5, 11, 13, 15, 17, 19, 25, 27, 31 and 35.
struct PlainResponse {
    std::uint16_t type;
    std::uint16_t status;

    void visit_integers(auto visit) { visit(type, status); }
};

// Type 1. `offset`: with status 20 where to send from, with status 0 the size of the complete file,
// with status 18 that of the temporary file, else without a meaning.
struct UploadFilePrepareResponse {
    std::uint16_t type;
    std::uint16_t status;
    std::uint8_t reserved_4[4];
    std::int64_t offset;

    void visit_integers(auto visit) { visit(type, status, offset); }
};

// Type 7. Size and time have a meaning with status 0 only.
struct DownloadFilePrepareResponse {
    std::uint16_t type;
    std::uint16_t status;
    std::uint8_t reserved_4[4];
    std::int64_t file_size;
    std::int64_t file_time;

    void visit_integers(auto visit) { visit(type, status, file_size, file_time); }
};

// Types 9, 21 and 29, then `data_length` bytes: file data, the storage list, a listing.
struct DataResponse {
    std::uint16_t type;
    std::uint16_t status;
    std::uint32_t data_length;

    void visit_integers(auto visit) { visit(type, status, data_length); }
};

// Type 23.
struct NodeCountResponse {
    std::uint16_t type;
    std::uint16_t status;
    std::uint16_t node_count;

    void visit_integers(auto visit) { visit(type, status, node_count); }
};

// Type 33, then `data_length` bytes of value 0.
struct TestDownloadDataResponse {
    std::uint16_t type;
    std::uint16_t status;
    std::uint16_t data_length;

    void visit_integers(auto visit) { visit(type, status, data_length); }
};

static_assert(WireRecord<TypeOnlyRequest> && sizeof(TypeOnlyRequest) == 2);
static_assert(WireRecord<UploadFilePrepareRequest> && sizeof(UploadFilePrepareRequest) == 40);
static_assert(offsetof(UploadFilePrepareRequest, encrypted) == 2);
static_assert(offsetof(UploadFilePrepareRequest, storage_id) == 4);
static_assert(offsetof(UploadFilePrepareRequest, user_id) == 8);
static_assert(offsetof(UploadFilePrepareRequest, file_size) == 16);
static_assert(offsetof(UploadFilePrepareRequest, file_time) == 24);
static_assert(offsetof(UploadFilePrepareRequest, path_length) == 32);
static_assert(WireRecord<UploadFileDataRequest> && sizeof(UploadFileDataRequest) == 8);
static_assert(offsetof(UploadFileDataRequest, data_length) == 4);
static_assert(WireRecord<DownloadFilePrepareRequest> && sizeof(DownloadFilePrepareRequest) == 16);
static_assert(offsetof(DownloadFilePrepareRequest, encrypted) == 2);
static_assert(offsetof(DownloadFilePrepareRequest, storage_id) == 4);
static_assert(offsetof(DownloadFilePrepareRequest, user_id) == 8);
static_assert(offsetof(DownloadFilePrepareRequest, path_length) == 12);
static_assert(WireRecord<DownloadFileDataRequest> && sizeof(DownloadFileDataRequest) == 16);
static_assert(offsetof(DownloadFileDataRequest, offset) == 8);
static_assert(WireRecord<PathRequest> && sizeof(PathRequest) == 16);
static_assert(offsetof(PathRequest, storage_id) == 4);
static_assert(offsetof(PathRequest, user_id) == 8);
static_assert(offsetof(PathRequest, path_length) == 12);
static_assert(WireRecord<RenamePathRequest> && sizeof(RenamePathRequest) == 16);
static_assert(offsetof(RenamePathRequest, storage_id) == 4);
static_assert(offsetof(RenamePathRequest, user_id) == 8);
static_assert(offsetof(RenamePathRequest, old_path_length) == 12);
static_assert(offsetof(RenamePathRequest, new_path_length) == 14);
static_assert(WireRecord<SetUserInformationRequest> && sizeof(SetUserInformationRequest) == 4);
static_assert(offsetof(SetUserInformationRequest, text_length) == 2);
static_assert(WireRecord<SetTransmitSpeedRequest> && sizeof(SetTransmitSpeedRequest) == 12);
static_assert(offsetof(SetTransmitSpeedRequest, send_speed) == 4);
static_assert(offsetof(SetTransmitSpeedRequest, second_speed) == 8);
static_assert(WireRecord<CheckStorageIdRequest> && sizeof(CheckStorageIdRequest) == 8);
static_assert(offsetof(CheckStorageIdRequest, storage_id) == 4);
static_assert(WireRecord<TestDataRequest> && sizeof(TestDataRequest) == 4);
static_assert(offsetof(TestDataRequest, data_length) == 2);
static_assert(WireRecord<PlainResponse> && sizeof(PlainResponse) == 4);
static_assert(offsetof(PlainResponse, status) == 2);
static_assert(WireRecord<UploadFilePrepareResponse> && sizeof(UploadFilePrepareResponse) == 16);
static_assert(offsetof(UploadFilePrepareResponse, status) == 2);
static_assert(offsetof(UploadFilePrepareResponse, offset) == 8);
static_assert(WireRecord<DownloadFilePrepareResponse> && sizeof(DownloadFilePrepareResponse) == 24);
static_assert(offsetof(DownloadFilePrepareResponse, status) == 2);
static_assert(offsetof(DownloadFilePrepareResponse, file_size) == 8);
static_assert(offsetof(DownloadFilePrepareResponse, file_time) == 16);
static_assert(WireRecord<DataResponse> && sizeof(DataResponse) == 8);
static_assert(offsetof(DataResponse, status) == 2);
static_assert(offsetof(DataResponse, data_length) == 4);
static_assert(WireRecord<NodeCountResponse> && sizeof(NodeCountResponse) == 6);
static_assert(offsetof(NodeCountResponse, status) == 2);
static_assert(offsetof(NodeCountResponse, node_count) == 4);
static_assert(WireRecord<TestDownloadDataResponse> && sizeof(TestDownloadDataResponse) == 6);
static_assert(offsetof(TestDownloadDataResponse, status) == 2);
static_assert(offsetof(TestDownloadDataResponse, data_length) == 4);

}  // namespace message
