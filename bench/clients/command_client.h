#pragma once

#include <string>
#include <vector>

#include "bench/client.h"

namespace bench {

// A peer's own command-line client, run once for each operation: its start and its work count.
class CommandClient : public Client {
  public:
    using Command = std::vector<std::string>;

    void download(const std::string& name, std::int64_t size) override;
    void upload(const std::string& name, std::int64_t size) override;
    void download_all(const FileRow& files) override;
    void upload_all(const FileRow& files) override;

  protected:
    // What fetches or brings a file or a whole folder; `name` is its name on the peer.
    virtual Command get(const std::string& name) const = 0;
    virtual Command put(const std::string& name) const = 0;

    // Throws unless it succeeds.
    static void run(const Command& command);
};

}  // namespace bench
