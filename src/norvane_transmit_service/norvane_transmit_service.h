#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "kestin_base/file.h"
#include "kestin_base/locker.h"
#include "kestin_base/uncopy.h"
#include "kestin_net/tcp_manager.h"
#include "kestin_net/tcp_service_base.h"
#include "src/norvane_transmit_service/settings.h"
#include "src/norvane_transmit_service/storage.h"
#include "src/roster/roster.h"
#include "src/shared/node_record.h"
#include "src/shared/operation_log.h"
#include "src/shared/transmit_statistics.h"
#include "src/storage_gate/storage_gate.h"
#include "src/tcp_event/temporary_file.h"

class NorvaneTransmitNode;

// The one object that the TCP substrate talks to: settings, storages, the live nodes and the files
// being uploaded. A connection of the transmit port carries a node as its user data; a connection
// without one speaks HTTP. Process singleton.
//
// `init` and `exit` run on the main thread. Settings, storages and MIME types are written only
// while no port is open and read without a lock; all else says who guards it.
class NorvaneTransmitService : public Kestin::Net::TcpServiceBase, private Kestin::Base::Uncopy {
  public:
    static NorvaneTransmitService& instance();

    // Reads the configuration below `root`, which ends in "/", and opens both ports. Returns false,
    // with the service stopped, if either failed. The run log and `failure` then say why; `failure`
    // in words for a person.
    bool init(const std::string& root);
    const std::string& failure() const { return failure_; }
    // Stops serving and forgets the configuration. Any number of times.
    void exit();

    bool on_connect(Kestin::Net::TcpConnectionBase* connection, bool connected) override;
    bool on_accept(Kestin::Net::TcpConnectionBase* connection, std::uint16_t port) override;
    bool on_recv(Kestin::Net::TcpConnectionBase* connection) override;
    bool on_send(Kestin::Net::TcpConnectionBase* connection) override;
    bool on_close(Kestin::Net::TcpConnectionBase* connection) override;

    // The nodes that are bound to a connection (src/roster/roster.h).
    void add_node(NorvaneTransmitNode* node);
    void remove_node(NorvaneTransmitNode* node);
    std::uint64_t get_node_count();

    // The paths that running uploads hold: a name is added once, until it is removed.
    bool add_upload_file(const std::string& pathname);
    void remove_upload_file(const std::string& pathname);

    bool is_storage_valid(std::uint32_t storage_id) const;
    // The absolute path that a request of `user_id` (0: no user) for `path` works on, always inside
    // the storage; empty for an unknown storage. `lower`: the path is about to be created, and the
    // configuration may want created names in lower case.
    std::string make_transmit_path(std::uint32_t storage_id, std::uint32_t user_id,
                                   const char* path, bool lower) const;
    const std::string& get_temp_file_suffix() const { return settings_.transmit_temp_file_suffix; }

    // When the bytes of uploads have to be on the disk.
    WritePolicy write_policy() const;
    // Whether a request may make folders in the storage: false if its own folder is missing, and
    // nobody but the administrator may make that.
    bool may_create_in(std::uint32_t storage_id) const;

    // The list of shown storages as an XML document. On false `document` is empty.
    bool make_storage_information(std::string& document) const;

    // The snapshot of the roster: the figures of all bound nodes, oldest first, and their totals.
    // Only the first refreshes it.
    void get_transmit_info(std::list<NodeRecord>& records);
    void get_transmit_statistics(TransmitStatistics& statistics);

    Roster& roster() { return roster_; }
    StorageGate& storage_gate() { return storage_gate_; }

  private:
    NorvaneTransmitService();
    ~NorvaneTransmitService() override;

    // The log of the operation that the caller begins.
    static OperationLog operation_log(const char* function = __builtin_FUNCTION());

    bool parse_configuration();
    bool listen();
    void forget_configuration();
    void format_pathname(const std::string& in, std::string& out, bool lower) const;

    static NorvaneTransmitNode* find_node(const Kestin::Net::TcpConnectionBase* connection);
    void release_all_nodes();
    void clear_upload_files();

    // The command port. Of the readers a false ends the connection; of all that answer it means
    // that the answer, which goes out whole or not at all, couldn't be sent.
    bool recv_http_data(Kestin::Net::TcpConnectionBase* connection, bool stop_on_handler_failure);
    bool serve_http_requests(const OperationLog& log, Kestin::Net::TcpConnectionBase& connection,
                             const std::string& bytes, bool stop_on_handler_failure);
    // Gives the peer the usual time and space for its next request.
    static void expect_http_request(Kestin::Net::TcpConnectionBase& connection);
    static bool is_command(std::string_view url);
    bool handle_http(Kestin::Net::TcpConnectionBase* connection, const std::string& url);
    bool answer_command(Kestin::Net::TcpConnectionBase* connection, const std::string& text);
    bool answer_file(Kestin::Net::TcpConnectionBase* connection, const std::string& url);
    static bool send_status_page(Kestin::Net::TcpConnectionBase* connection,
                                 const std::string& status);
    static bool send_http_data(Kestin::Net::TcpConnectionBase* connection, const void* data,
                               std::uint64_t size, const std::string& status,
                               const std::string& content_type);
    static bool send_http_document(Kestin::Net::TcpConnectionBase& connection,
                                   std::shared_ptr<const std::string> document,
                                   const std::string& status);
    static bool send_http_file(Kestin::Net::TcpConnectionBase& connection,
                               const Kestin::Base::File& file, const std::string& content_type);
    void fill_mime_types();
    std::string mime_type(const std::string& path) const;

    std::atomic<bool> running_ = false;
    std::string root_directory_;
    std::string failure_;
    Settings settings_;
    StorageTable storages_;
    std::map<std::string, std::string> mime_types_;  // by extension, with its dot, in lower case
    Kestin::Net::TcpManager tcp_manager_;

    // While one callback refreshes the roster's snapshot, few others may wait for it.
    Places command_places_{4};
    Roster roster_;
    StorageGate storage_gate_;

    Kestin::Base::WindowsThreadLocker upload_file_locker_{nullptr};
    std::set<std::string> upload_file_set_ KESTIN_GUARDED_BY(upload_file_locker_);
};
