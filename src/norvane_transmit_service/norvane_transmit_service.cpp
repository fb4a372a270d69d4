#include "src/norvane_transmit_service/norvane_transmit_service.h"

#include <array>
#include <new>

#include "src/command_line/documents.h"
#include "src/norvane_transmit_node/norvane_transmit_node.h"
#include "src/norvane_transmit_service/storage_warnings.h"

namespace {

// Connections stay open however long they are silent: a node belongs to its client until that
// leaves.
constexpr std::uint64_t idle_seconds = 0;
// Callbacks wait for disks, so that more of them run than there are processors.
constexpr std::uint64_t thread_count = 10;

constexpr LogSource log_source{.file = "src/norvane_transmit_service",
                               .class_name = "NorvaneTransmitService"};

// Runs what serves a connection; false, which ends the connection, also if there is no memory for
// it. Every other exception is a fault of the program and ends it.
template <typename Callback>
bool within_memory(const OperationLog& log, Callback callback) {
    try {
        return callback();
    } catch (const std::bad_alloc&) {
        log.critical("out of memory, the connection ends");
        return false;
    }
}

}  // namespace

NorvaneTransmitService& NorvaneTransmitService::instance() {
    static NorvaneTransmitService service;
    return service;
}

NorvaneTransmitService::NorvaneTransmitService() : roster_(make_transmit_list_document) {
    tcp_manager_.set_service(this);
    fill_mime_types();
}

NorvaneTransmitService::~NorvaneTransmitService() {
    exit();
}

OperationLog NorvaneTransmitService::operation_log(const char* function) {
    return OperationLog(log_source, 0, function);
}

bool NorvaneTransmitService::init(const std::string& root) {
    exit();
    const OperationLog log = operation_log();
    log.debug("tcp transmit service init begin");
    running_ = true;
    root_directory_ = root;
    if (!parse_configuration()) {
        log.error("tcp transmit service init failure: parse configuration failure");
        exit();
        return false;
    }
    warn_of_storages(log, storages_, root_directory_);
    log.debug("tcp transmit service transmit listen on (%s:%d)", settings_.host.c_str(),
              settings_.transmit_port);
    if (!listen()) {
        log.error("tcp transmit service init failure: start tcp manager (%d, %d) failure",
                  settings_.transmit_port, settings_.command_port);
        failure_ = tcp_manager_.failure();
        log.error("%s", failure_.c_str());
        exit();
        return false;
    }
    log.debug("tcp transmit service command listen on (%d)", settings_.command_port);
    log.debug("tcp transmit service init success");
    return true;
}

bool NorvaneTransmitService::listen() {
    const std::array<std::uint16_t, 2> ports{settings_.transmit_port, settings_.command_port};
    return tcp_manager_.init(idle_seconds, thread_count, ports.data(), ports.size());
}

void NorvaneTransmitService::exit() {
    if (!running_) {
        return;
    }
    const OperationLog log = operation_log();
    log.debug("tcp transmit service exit begin");
    // From here on every callback refuses, so that none touches what is taken away below.
    running_ = false;
    log.debug("tcp manager exit begin");
    tcp_manager_.exit();
    log.debug("tcp manager exit end");
    forget_configuration();
    release_all_nodes();
    clear_upload_files();
    log.debug("tcp transmit service exit end");
}

bool NorvaneTransmitService::on_connect(Kestin::Net::TcpConnectionBase* /*connection*/,
                                        bool /*connected*/) {
    return true;
}

bool NorvaneTransmitService::on_accept(Kestin::Net::TcpConnectionBase* connection,
                                       std::uint16_t port) {
    if (!running_ || connection == nullptr) {
        return false;
    }
    if (port != settings_.transmit_port) {
        expect_http_request(*connection);
        return true;
    }
    NorvaneTransmitNode* node = NorvaneTransmitNode::acquire_transmit_node();
    if (node == nullptr) {
        operation_log().critical("acquire tcp transmit node failure");
        return false;
    }
    if (!within_memory(operation_log(), [&] { return node->recv_connect_response(connection); })) {
        // A node that was bound goes back to the pool.
        on_close(connection);
        return false;
    }
    roster_.note_change();
    return true;
}

bool NorvaneTransmitService::on_recv(Kestin::Net::TcpConnectionBase* connection) {
    if (!running_) {
        return false;
    }
    NorvaneTransmitNode* node = find_node(connection);
    return within_memory(operation_log(), [&] {
        return node != nullptr ? node->on_recv_data(connection) : recv_http_data(connection, false);
    });
}

bool NorvaneTransmitService::on_send(Kestin::Net::TcpConnectionBase* connection) {
    if (!running_) {
        return false;
    }
    // Without a node there is nothing to continue: HTTP answers are written whole.
    NorvaneTransmitNode* node = find_node(connection);
    return node == nullptr ||
           within_memory(operation_log(), [&] { return node->on_send_data(connection); });
}

bool NorvaneTransmitService::on_close(Kestin::Net::TcpConnectionBase* connection) {
    if (!running_) {
        return false;
    }
    NorvaneTransmitNode* node = find_node(connection);
    if (node == nullptr) {
        return false;
    }
    // The end of a transfer closes its file.
    StoragePass pass;
    if (!pass.enter(node->transfer_storage())) {
        connection->postpone();
        return true;
    }
    if (!node->recv_disconnect_response(connection)) {
        return false;
    }
    roster_.note_change();
    return true;
}
