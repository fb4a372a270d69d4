#pragma once

#include <cstdint>

#include "client/remote.h"
#include "src/message/records.h"

// The records of requests that more than one place sends. Paths fit the wire, whose lengths stand
// in 16 bits.
namespace transmit::detail {

// Where and for whom a request works: fields that all records with a path have.
template <typename Request>
Request addressed(const RemotePath& path) {
    Request request{};
    request.storage_id = path.storage_id;
    request.user_id = path.user_id;
    if constexpr (requires { request.path_length; }) {
        request.path_length = static_cast<std::uint16_t>(path.path.size());
    }
    return request;
}

inline message::UploadFilePrepareRequest upload_prepare(const RemotePath& path,
                                                        const FileStamp& stamp, bool encrypted) {
    auto request = addressed<message::UploadFilePrepareRequest>(path);
    request.encrypted = encrypted;
    request.file_size = stamp.size;
    request.file_time = stamp.time;
    return request;
}

inline message::DownloadFilePrepareRequest download_prepare(const RemotePath& path,
                                                            bool encrypted) {
    auto request = addressed<message::DownloadFilePrepareRequest>(path);
    request.encrypted = encrypted;
    return request;
}

// Each batch of a download is then one block: the server sends as fast as the connection takes it,
// and nothing piles up in its memory.
inline constexpr std::uint32_t speed_by_blocks = 0;
// Downloads of up to 500 blocks are then one batch, sent before the next request is looked at.
inline constexpr std::uint32_t speed_by_files = 0xFFFFFFFF;

inline message::SetTransmitSpeedRequest set_speed(std::uint32_t speed) {
    message::SetTransmitSpeedRequest request{};
    request.send_speed = speed;
    return request;
}

}  // namespace transmit::detail
