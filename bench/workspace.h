#pragma once

#include <cstdint>
#include <string>

#include "bench/client.h"
#include "tests/support/temporary_folder.h"

namespace bench {

// The folder that all contenders serve, readable and writable for every user, since the peers may
// run as another one; beside it, folders for what a peer needs for itself.
class Workspace {
  public:
    Workspace();

    // With "/" at their ends. The served folder lies in the root, as "files".
    const std::string& root() const { return root_.path(); }
    std::string files() const { return root() + "files/"; }
    std::string make_private_folder(const std::string& name) const;

    // Makes a file of that many bytes, or of holes only; a row of files; a folder for uploads.
    void make_file(const std::string& name, std::int64_t size) const;
    void make_sparse_file(const std::string& name, std::int64_t size) const;
    void make_files(const FileRow& files) const;
    void make_folder(const std::string& name) const;
    void remove(const std::string& name) const;

  private:
    support::TemporaryFolder root_;
};

}  // namespace bench
