#pragma once

#include <cstdint>
#include <string>

// What `cfg/config.xml` sets, one field an element.
struct Settings {
    std::string host;  // told in the log; both ports are open on all local addresses
    std::uint16_t transmit_port = 0;
    std::uint16_t command_port = 0;
    bool use_user_id = false;         // each user has a folder of their own in a storage
    bool group_by_user_id = false;    // above those stand folders of 500 users each
    bool pathname_use_lower = false;  // what is created gets a name in lower case
    std::string transmit_temp_file_suffix = ".tcp";
    std::uint64_t transmit_info_update_interval = 3;  // seconds, 1 to 5
    std::string storage_configuration;                // the file that lists the storages
    bool durable_upload = false;       // a finished upload is on the disk before the answer
    std::uint64_t checkpoint_mib = 0;  // how much of an upload a kill may cost; 0: all of it
};
