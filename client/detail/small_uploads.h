#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

#include "client/batch.h"
#include "client/detail/remote_folders.h"
#include "client/detail/small_files.h"
#include "client/detail/source_file.h"
#include "client/detail/upload_names.h"
#include "client/detail/upload_sender.h"

namespace transmit::detail {

// Sends small files of which the server has nothing: prepare, data and finish of each at once.
class SmallUploads : public SmallFiles {
  public:
    // All must outlive the object.
    SmallUploads(Worker& worker, RemoteFolders& folders, const UploadNames& names,
                 UploadSender& sender, const std::vector<UploadJob>& jobs)
        : SmallFiles(worker, most_under_way),
          folders_(folders),
          names_(names),
          sender_(sender),
          jobs_(jobs) {}

  private:
    // Two connections with so much under way hide the time that answers take.
    static constexpr std::size_t most_under_way = 3;

    struct Staged {
        std::size_t file;
        SourceFile source;
    };

    void send(Connection& connection, const std::vector<std::size_t>& files) override;
    void conclude(Connection& connection, const Run& run) override;
    void tidy_up(Connection& connection) override;

    std::optional<Staged> stage(Connection& connection, std::size_t file);
    Run send_some(Connection& connection, std::deque<Staged>& staged);
    bool send_one(Connection& connection, const Staged& staged);
    static Result<std::uint16_t> receive_outcome(Connection& connection);

    RemoteFolders& folders_;
    const UploadNames& names_;
    UploadSender& sender_;
    const std::vector<UploadJob>& jobs_;
    std::vector<RemotePath> overflown_;
};

}  // namespace transmit::detail
