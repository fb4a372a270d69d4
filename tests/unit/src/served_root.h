#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "kestin_base/log.h"
#include "kestin_base/record.h"
#include "src/norvane_transmit_service/norvane_transmit_service.h"
#include "tests/support/files.h"
#include "tests/support/raw_socket.h"
#include "tests/support/temporary_folder.h"

// The service of this process, started on a root of its own with one storage, id 1, logs and
// record file; stopped when the object goes.
class ServedRoot {
  public:
    // What a test may want otherwise.
    struct Setup {
        std::string use_user_id = "false";
        std::string group_by_user_id = "false";
        std::string pathname_use_lower = "false";
        std::string update_interval = "1";
        std::string further_items = {};  // of the storage list
    };

    ServedRoot() {
        support::write_file(root() + "cfg/log.ini", log_settings);
        support::write_file(storage() + ".kept", "");
        if (!Kestin::Base::LogSwitch::instance().init((root() + "cfg/log.ini").c_str()) ||
            !Kestin::Base::Record::instance().init(root()) || !start({})) {
            throw std::runtime_error("the service didn't start: " + run_log());
        }
    }
    ~ServedRoot() {
        service().exit();
        Kestin::Base::Record::instance().exit();
        Kestin::Base::LogSwitch::instance().exit();
    }
    ServedRoot(const ServedRoot&) = delete;
    ServedRoot& operator=(const ServedRoot&) = delete;

    // Starts the service anew.
    bool start(const Setup& setup) const {
        support::write_file(root() + "cfg/config.xml", settings(setup));
        support::write_file(
            root() + "cfg/storage.xml",
            element("storages", item("1", "Public", "true", storage()) + setup.further_items));
        return service().init(root());
    }

    static std::string item(const std::string& id, const std::string& name, const std::string& show,
                            const std::string& directory) {
        return element("item", element("id", id) + element("name", name) + element("show", show) +
                                   element("directory", directory));
    }

    static NorvaneTransmitService& service() { return NorvaneTransmitService::instance(); }

    const std::string& root() const { return folder_.path(); }
    std::string storage() const { return root() + "storage/"; }
    std::string run_log() const { return support::read_file(root() + "log/run.log"); }
    std::string debug_log() const { return support::read_file(root() + "log/debug.log"); }
    std::string record() const { return support::read_file(root() + "log/record.log"); }
    std::uint16_t transmit_port() const { return transmit_port_; }
    std::uint16_t command_port() const { return command_port_; }

  private:
    static constexpr const char* log_settings =
        "[run]\nfile = log/run.log\nlevel = 3\nsize = 16\ncount = 1\n"
        "[debug]\nfile = log/debug.log\nlevel = 3\nsize = 16\ncount = 1\n";

    static std::string element(const std::string& name, const std::string& text) {
        return "<" + name + ">" + text + "</" + name + ">";
    }

    std::string settings(const Setup& setup) const {
        return element("transmit_server",
                       element("host", "127.0.0.1") +
                           element("port", std::to_string(transmit_port_)) +
                           element("command_port", std::to_string(command_port_)) +
                           element("use_user_id", setup.use_user_id) +
                           element("group_by_user_id", setup.group_by_user_id) +
                           element("pathname_use_lower", setup.pathname_use_lower) +
                           element("transmit_temp_file_suffix", ".tcp") +
                           element("transmit_info_update_interval", setup.update_interval) +
                           element("storage_configuration", root() + "cfg/storage.xml"));
    }

    support::TemporaryFolder folder_;
    std::uint16_t transmit_port_ = support::free_port();
    std::uint16_t command_port_ = support::free_port();
};
