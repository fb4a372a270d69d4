#pragma once

#include <gtest/gtest.h>

#include <string>

#include "kestin_base/log.h"
#include "src/norvane_transmit_service/norvane_transmit_service.h"
#include "tests/support/files.h"
#include "tests/support/raw_socket.h"
#include "tests/support/scripted_connection.h"
#include "tests/support/temporary_folder.h"

// The real service in a root of its own, with the real logs; the test plays the substrate and calls
// the callbacks. What the service itself listens on is a port of the system's choice.
class RunningService : public testing::Test {
  protected:
    struct Setup {
        std::string command_port = "0";
        std::string use_user_id = "false";
        std::string group_by_user_id = "false";
        std::string pathname_use_lower = "false";
        std::string interval = "5";
        std::string storages =
            "<item><id>1</id><name>Public</name><directory>/data</directory></item>";
    };

    // The numbers by which on_accept tells the two ports apart.
    static constexpr std::uint16_t transmit_port = 0;
    static constexpr std::uint16_t other_port = 1;

    RunningService() {
        support::write_file(root() + "cfg/log.ini",
                            "[run]\nfile=log/run.log\nlevel=3\nsize=1\ncount=1\n"
                            "[debug]\nfile=log/debug.log\nlevel=3\nsize=1\ncount=1\n");
        EXPECT_TRUE(Kestin::Base::LogSwitch::instance().init((root() + "cfg/log.ini").c_str()));
    }
    ~RunningService() override {
        service.exit();
        Kestin::Base::LogSwitch::instance().exit();
    }

    bool start(const Setup& setup) {
        const auto element = [](const std::string& name, const std::string& text) {
            return "<" + name + ">" + text + "</" + name + ">";
        };
        support::write_file(
            root() + "cfg/config.xml",
            element("transmit_server",
                    element("host", "here") + element("port", "0") +
                        element("command_port", setup.command_port) +
                        element("use_user_id", setup.use_user_id) +
                        element("group_by_user_id", setup.group_by_user_id) +
                        element("pathname_use_lower", setup.pathname_use_lower) +
                        element("transmit_temp_file_suffix", ".part") +
                        element("transmit_info_update_interval", setup.interval) +
                        element("storage_configuration", root() + "cfg/storage.xml")));
        support::write_file(root() + "cfg/storage.xml", element("storages", setup.storages));
        return service.init(root());
    }

    const std::string& root() const { return folder_.path(); }
    std::string run_log() const { return support::read_file(root() + "log/run.log"); }
    std::string debug_log() const { return support::read_file(root() + "log/debug.log"); }

    NorvaneTransmitService& service = NorvaneTransmitService::instance();

  private:
    support::TemporaryFolder folder_;
};
