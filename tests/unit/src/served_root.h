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
    ServedRoot() {
        support::write_file(root() + "cfg/log.ini", log_settings);
        support::write_file(root() + "cfg/config.xml", configuration());
        support::write_file(root() + "cfg/storage.xml",
                            "<storages><item><id>1</id><name>Public</name><show>true</show>"
                            "<directory>" +
                                storage() + "</directory></item></storages>");
        support::write_file(storage() + ".kept", "");
        if (!Kestin::Base::LogSwitch::instance().init((root() + "cfg/log.ini").c_str()) ||
            !Kestin::Base::Record::instance().init(root()) || !service().init(root())) {
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

    static NorvaneTransmitService& service() { return NorvaneTransmitService::instance(); }

    const std::string& root() const { return folder_.path(); }
    std::string storage() const { return root() + "storage/"; }
    std::string run_log() const { return support::read_file(root() + "log/run.log"); }
    std::string record() const { return support::read_file(root() + "log/record.log"); }
    std::uint16_t transmit_port() const { return transmit_port_; }
    std::uint16_t command_port() const { return command_port_; }

  private:
    static constexpr const char* log_settings =
        "[run]\nfile = log/run.log\nlevel = 3\nsize = 16\ncount = 1\n"
        "[debug]\nfile = log/debug.log\nlevel = 3\nsize = 16\ncount = 1\n";

    std::string configuration() const {
        return "<transmit_server><host>127.0.0.1</host><port>" + std::to_string(transmit_port_) +
               "</port><command_port>" + std::to_string(command_port_) +
               "</command_port><use_user_id>false</use_user_id>"
               "<group_by_user_id>false</group_by_user_id>"
               "<pathname_use_lower>false</pathname_use_lower>"
               "<transmit_temp_file_suffix>.tcp</transmit_temp_file_suffix>"
               "<transmit_info_update_interval>1</transmit_info_update_interval>"
               "<storage_configuration>" +
               root() + "cfg/storage.xml</storage_configuration></transmit_server>";
    }

    support::TemporaryFolder folder_;
    std::uint16_t transmit_port_ = support::free_port();
    std::uint16_t command_port_ = support::free_port();
};
