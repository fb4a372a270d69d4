#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "src/message/records.h"

// The 18 requests. Each row is a type of its own, which the framing, the handlers and the client
// read: there is no other list of messages.
namespace message {

// How a request leaves the receive buffer.
enum class Framing {
    header_dropped,  // type alone: nothing to read
    header_moved,    // a fixed record
    tails_moved,     // a record, then the tails whose lengths it holds
    tails_dropped,   // the same, but the tails' bytes don't matter
    tail_in_place,   // a record, then a tail that is used where it lies and dropped by the handler
};

template <std::uint16_t request_type, Framing framing_of_request, WireRecord RequestRecord,
          WireRecord ResponseRecord, auto... tail_length_members>
struct Row {
    static constexpr std::uint16_t type = request_type;
    static constexpr std::uint16_t response_type = request_type + 1;
    static constexpr Framing framing = framing_of_request;
    static constexpr std::size_t tail_count = sizeof...(tail_length_members);
    using Request = RequestRecord;
    using Response = ResponseRecord;

    // The lengths of the tails, in the order in which they follow the header.
    static constexpr std::array<std::uint64_t, tail_count> tail_lengths(const Request& request) {
        return {static_cast<std::uint64_t>(request.*tail_length_members)...};
    }
};

// clang-format off
using UploadFilePrepare = Row<0, Framing::tails_moved, UploadFilePrepareRequest, UploadFilePrepareResponse, &UploadFilePrepareRequest::path_length>;
using UploadFileData = Row<2, Framing::tail_in_place, UploadFileDataRequest, PlainResponse, &UploadFileDataRequest::data_length>;
using UploadFileFinish = Row<4, Framing::header_dropped, TypeOnlyRequest, PlainResponse>;
using DownloadFilePrepare = Row<6, Framing::tails_moved, DownloadFilePrepareRequest, DownloadFilePrepareResponse, &DownloadFilePrepareRequest::path_length>;
using DownloadFileData = Row<8, Framing::header_moved, DownloadFileDataRequest, DataResponse>;
using DownloadFileFinish = Row<10, Framing::header_moved, TypeOnlyRequest, PlainResponse>;
using CreateDirectory = Row<12, Framing::tails_moved, PathRequest, PlainResponse, &PathRequest::path_length>;
using DeletePath = Row<14, Framing::tails_moved, PathRequest, PlainResponse, &PathRequest::path_length>;
using RenamePath = Row<16, Framing::tails_moved, RenamePathRequest, PlainResponse, &RenamePathRequest::old_path_length, &RenamePathRequest::new_path_length>;
using SetUserInformation = Row<18, Framing::tails_moved, SetUserInformationRequest, PlainResponse, &SetUserInformationRequest::text_length>;
using GetStorageInformation = Row<20, Framing::header_dropped, TypeOnlyRequest, DataResponse>;
using GetNorvaneNodeCount = Row<22, Framing::header_dropped, TypeOnlyRequest, NodeCountResponse>;
using SetTransmitSpeed = Row<24, Framing::header_moved, SetTransmitSpeedRequest, PlainResponse>;
using CheckStorageId = Row<26, Framing::header_moved, CheckStorageIdRequest, PlainResponse>;
using GetPathContent = Row<28, Framing::tails_moved, PathRequest, DataResponse, &PathRequest::path_length>;
using TestUploadData = Row<30, Framing::tails_dropped, TestDataRequest, PlainResponse, &TestDataRequest::data_length>;
using TestDownloadData = Row<32, Framing::header_moved, TestDataRequest, TestDownloadDataResponse>;
using CleanupConnection = Row<34, Framing::header_dropped, TypeOnlyRequest, PlainResponse>;
// clang-format on

inline constexpr std::size_t request_count = 18;

}  // namespace message
