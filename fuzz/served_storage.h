#pragma once

#include <filesystem>

#include "tests/support/scripted_connection.h"
#include "tests/unit/src/served_root.h"

// The service of this process with one storage that each input finds empty. It logs nothing: else
// the log would be most of what a fuzzer does.
class ServedStorage : public ServedRoot {
  public:
    explicit ServedStorage(const Setup& setup = {}) {
        Kestin::Base::Record::instance().exit();
        Kestin::Base::LogSwitch::instance().exit();
        if (!start(setup)) {
            throw std::runtime_error("the service didn't start");
        }
    }

    void empty() const {
        for (const auto& entry : std::filesystem::directory_iterator(storage())) {
            std::filesystem::remove_all(entry);
        }
    }
};

// Delivers the bytes to a connection that has been accepted, in pieces of that size, as the
// substrate does: a callback is called again while it removes bytes and bytes remain, and the
// connection is offered for sending. False if the service ended the connection.
inline bool deliver(support::ScriptedConnection& connection, std::string_view bytes,
                    std::size_t piece) {
    auto& service = ServedRoot::service();
    for (std::size_t at = 0; at < bytes.size(); at += piece) {
        connection.feed(bytes.substr(at, piece));
        std::uint64_t before = 0;
        do {
            before = connection.recv_buffer_size();
            if (!service.on_recv(&connection)) {
                return false;
            }
        } while (connection.recv_buffer_size() != 0 && connection.recv_buffer_size() < before);
        if (!service.on_send(&connection)) {
            return false;
        }
    }
    return true;
}
