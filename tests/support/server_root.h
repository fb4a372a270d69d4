#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/temporary_folder.h"

namespace support {

struct Storage {
    std::uint32_t id = 1;
    std::string name = "Public";
    bool show = true;
    std::string directory = "storage/public";  // relative ones count from the root
    std::string further = {};                  // further elements, as XML
};

// What goes into cfg/config.xml and the storage list. A port 0 is replaced by a free one.
struct ServerSettings {
    std::uint16_t port = 0;
    std::uint16_t command_port = 0;
    bool use_user_id = false;
    bool group_by_user_id = false;
    bool pathname_use_lower = false;
    std::string temp_file_suffix = ".tcp";
    std::uint64_t update_interval = 1;
    std::vector<Storage> storages = {Storage{}};
    std::string further = {};  // further elements of config.xml, as XML
};

// A runnable tree of its own in a temporary folder: the server's program, its shipped log settings
// and web pages as the build made them, and settings of the test's choice.
class ServerRoot {
  public:
    explicit ServerRoot(const ServerSettings& settings = {});

    // Absolute, with "/" at its end.
    const std::string& path() const { return folder_.path(); }
    std::string program() const { return path() + "transmit_server"; }
    std::uint16_t transmit_port() const { return settings_.port; }
    std::uint16_t command_port() const { return settings_.command_port; }

    // Of the storage with that id, with "/" at its end; the folder is created with the tree.
    std::string storage_folder(std::uint32_t id = 1) const;

    std::string run_log() const;
    std::string debug_log() const;
    std::string record() const;

  private:
    void write_settings() const;

    ServerSettings settings_;
    TemporaryFolder folder_;
};

}  // namespace support
