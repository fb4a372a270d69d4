#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <string>
#include <vector>

#include "client/batch.h"
#include "client/detail/work_name.h"
#include "src/message/status.h"
#include "tests/support/files.h"
#include "tests/support/temporary_folder.h"
#include "tests/unit/client/scripted_peer.h"

// Single transfers against a scripted server: what both sides say, a piece each, and a fixture with
// a file to send and a place for one that comes.

using namespace std::chrono_literals;
using namespace std::string_literals;
using support::read_file;
using support::write_file;
using transmit::ErrorKind;
using transmit::Progress;

inline constexpr std::int64_t source_time = 1'560'000'000;

inline transmit::RetryPolicy hasty(std::chrono::milliseconds time_limit = 60s) {
    return {.first_pause = 1ms, .longest_pause = 8ms, .time_limit = time_limit};
}

inline transmit::WaitLimits patient(std::function<bool()> cancelled = {}) {
    return {.connect = 60s, .silence = 60s, .cancelled = std::move(cancelled)};
}

inline void set_time(const std::string& path, std::int64_t time) {
    const timespec times[2] = {{time, 0}, {time, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

inline std::int64_t time_of(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_mtim.tv_sec : -1;
}

inline void answer_prepare(PeerConnection& peer, std::uint16_t status, std::int64_t offset = 0) {
    message::UploadFilePrepareResponse response{};
    response.status = status;
    response.offset = offset;
    peer.answer<message::UploadFilePrepare>(response);
}

inline std::string prepare_upload(PeerConnection& peer, std::uint16_t status,
                                  std::int64_t offset = 0) {
    std::string path;
    peer.expect<message::UploadFilePrepare>(&path);
    answer_prepare(peer, status, offset);
    return path;
}

// Takes data messages until `size` bytes have come.
inline std::string receive_upload(PeerConnection& peer, std::size_t size) {
    std::string received;
    while (received.size() < size) {
        std::string tail;
        peer.expect<message::UploadFileData>(&tail);
        received += tail;
    }
    return received;
}

inline void finish_upload(PeerConnection& peer, std::uint16_t status = message::status_ok) {
    peer.expect<message::UploadFileFinish>();
    peer.answer<message::UploadFileFinish>({.type = 0, .status = status});
}

inline void send_block(PeerConnection& peer, std::string_view data,
                       std::uint16_t status = message::status_ok) {
    const message::DataResponse header{.type = message::DownloadFileData::response_type,
                                       .status = status,
                                       .data_length = static_cast<std::uint32_t>(data.size())};
    peer.send(bytes_of(header) + std::string(data));
}

inline void prepare_download(PeerConnection& peer, std::uint16_t status, std::size_t size = 0,
                             std::int64_t time = source_time) {
    peer.expect<message::DownloadFilePrepare>();
    message::DownloadFilePrepareResponse response{};
    response.status = status;
    response.file_size = static_cast<std::int64_t>(size);
    response.file_time = time;
    peer.answer<message::DownloadFilePrepare>(response);
}

// The whole conversation up to the data request, whose offset it gives.
inline std::int64_t start_download(PeerConnection& peer, std::size_t size,
                                   std::int64_t time = source_time) {
    prepare_download(peer, message::status_ok, size, time);
    return peer.expect<message::DownloadFileData>().offset;
}

// The end of the stream, and the look at the source behind it.
inline void finish_download(PeerConnection& peer, std::size_t size,
                            std::int64_t time = source_time) {
    send_block(peer, "");
    peer.expect<message::DownloadFileFinish>();
    peer.answer<message::DownloadFileFinish>();
    prepare_download(peer, message::status_ok, size, time);
    peer.expect<message::DownloadFileFinish>();
    peer.answer<message::DownloadFileFinish>();
}

// What a client says before anything else.
inline void greet(PeerConnection& peer) {
    peer.expect<message::SetTransmitSpeed>();
    peer.answer<message::SetTransmitSpeed>();
}

inline ScriptedPeer::Script greeted(ScriptedPeer::Script script) {
    return [script = std::move(script)](PeerConnection& peer) {
        greet(peer);
        script(peer);
    };
}

// Tells that the folder that is asked for doesn't exist.
inline void list_nothing(PeerConnection& peer) {
    peer.expect<message::GetPathContent>();
    peer.answer<message::GetPathContent>(
        {.type = 0, .status = message::status_access_failed, .data_length = 0});
}

inline void list(PeerConnection& peer, const std::string& listing) {
    peer.expect<message::GetPathContent>();
    peer.send(bytes_of(message::DataResponse{29, message::status_path_is_directory,
                                             static_cast<std::uint32_t>(listing.size())}) +
              listing);
}

// A server whose storage holds nothing, as uploads ask before they begin.
inline ScriptedPeer::Script empty(ScriptedPeer::Script script) {
    return greeted([script = std::move(script)](PeerConnection& peer) {
        list_nothing(peer);
        script(peer);
    });
}

class Watch : public transmit::TransferObserver {
  public:
    void progressed(std::size_t, const Progress& progress) override {
        last = progress;
        if (on_progress) {
            on_progress(progress);
        }
    }
    void placed(std::size_t, const std::string& path) override { place = path; }
    void stalled(std::size_t) override { ++stalls; }
    void retrying(std::size_t, const transmit::Error& reason, std::chrono::milliseconds,
                  std::chrono::milliseconds) override {
        retries.push_back(reason);
    }
    void started_over(std::size_t, const std::string&) override { ++starts_over; }
    void done(std::size_t, const transmit::TransferReport& told) override { report = told; }

    // The one file's report, or what went wrong.
    transmit::Result<transmit::TransferReport> outcome(const transmit::TransferSummary& summary) {
        if (!summary.failed.empty()) {
            return summary.failed[0].error;
        }
        return summary.stopped ? transmit::Result<transmit::TransferReport>(*summary.stopped)
                               : report;
    }

    std::function<void(const Progress&)> on_progress;
    Progress last;
    std::vector<transmit::Error> retries;
    std::atomic<int> stalls = 0;
    int starts_over = 0;
    std::string place;
    transmit::TransferReport report;
};

class Transfer : public testing::Test {
  protected:
    Transfer() {
        write_file(source_, content_);
        set_time(source_, source_time);
    }

    transmit::Result<transmit::TransferReport> upload(const ScriptedPeer& peer,
                                                      transmit::RetryPolicy policy = hasty()) {
        transmit::UploadBatch batch;
        batch.files.push_back({source_, {1, 0, "a.bin"}, {}});
        return watch_.outcome(transmit::upload_files({{"127.0.0.1", peer.port()}, limits_, policy},
                                                     batch, options_, watch_));
    }

    transmit::Result<transmit::TransferReport> download(const ScriptedPeer& peer,
                                                        transmit::RetryPolicy policy = hasty()) {
        transmit::DownloadBatch batch;
        batch.files.push_back({{1, 0, "a.bin"}, target_, {}, {}});
        return watch_.outcome(transmit::download_files(
            {{"127.0.0.1", peer.port()}, limits_, policy}, batch, options_, watch_));
    }

    std::vector<std::string> names() const {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
            found.push_back(entry.path().filename());
        }
        std::sort(found.begin(), found.end());
        return found;
    }

    // The work file of the target, and what is known of it.
    std::string work_file(std::string_view ending = transmit::detail::part_ending) const {
        return folder_.path() + transmit::detail::work_name("target.bin", ending);
    }

    support::TemporaryFolder folder_;
    const std::string source_ = folder_.path() + "source.bin";
    const std::string target_ = folder_.path() + "target.bin";
    const std::string content_ = support::random_bytes(1'000'000, 1);
    transmit::WaitLimits limits_ = patient();
    transmit::TransferOptions options_;
    Watch watch_;
};
