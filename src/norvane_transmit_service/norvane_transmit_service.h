#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <map>
#include <set>
#include <string>

#include "kestin_base/locker.h"
#include "kestin_base/uncopy.h"
#include "kestin_net/tcp_manager.h"
#include "kestin_net/tcp_service_base.h"
#include "src/norvane_transmit_service/storage.h"
#include "src/shared/node_record.h"
#include "src/shared/transmit_statistics.h"

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

    // Reads the configuration below `root`, which ends in "/", and opens both ports. False, with
    // the reason in the run log and the service stopped: either failed.
    bool init(const std::string& root);
    // Stops serving and forgets the configuration. Any number of times.
    void exit();

    bool on_connect(Kestin::Net::TcpConnectionBase* connection, bool connected) override;
    bool on_accept(Kestin::Net::TcpConnectionBase* connection, std::uint16_t port) override;
    bool on_recv(Kestin::Net::TcpConnectionBase* connection) override;
    bool on_send(Kestin::Net::TcpConnectionBase* connection) override;
    bool on_close(Kestin::Net::TcpConnectionBase* connection) override;

    // The nodes that are bound to a connection, oldest first.
    void add_node(NorvaneTransmitNode* node);
    void remove_node(NorvaneTransmitNode* node);
    std::uint64_t get_node_count();

    // The paths that running uploads hold: a name is added once, until it is removed.
    bool add_upload_file(const std::string& pathname);
    void remove_upload_file(const std::string& pathname);

    // The absolute path that a request of `user_id` (0: no user) for `path` works on, always inside
    // the storage; empty for an unknown storage. `lower`: the path is about to be created, and the
    // configuration may want created names in lower case.
    std::string make_transmit_path(std::uint32_t storage_id, std::uint32_t user_id,
                                   const char* path, bool lower) const;
    // The folder that an empty path of such a request names.
    bool is_storage_valid(std::uint32_t storage_id) const;
    const std::string& get_temp_file_suffix() const { return transmit_temp_file_suffix_; }

    // The list of shown storages as an XML document. On false `document` is empty.
    bool make_storage_information(std::string& document) const;

  private:
    NorvaneTransmitService();
    ~NorvaneTransmitService() override;

    bool parse_configuration();
    bool parse_settings(const std::string& filename, std::string& storage_configuration);
    bool parse_storages(const std::string& filename);
    bool parse_storage(const std::string& item, Storage& storage) const;
    void forget_configuration();
    void format_pathname(const std::string& in, std::string& out, bool lower) const;

    void release_all_nodes();
    void clear_upload_files();

    std::atomic<bool> running_ = false;
    bool use_user_id_ = false;
    bool group_by_user_id_ = false;
    bool pathname_use_lower_ = false;
    std::string transmit_temp_file_suffix_ = ".tcp";
    std::uint64_t transmit_info_update_interval_ = 3;  // seconds, 1 to 5
    std::string root_directory_;
    std::string host_;
    std::uint16_t transmit_port_ = 0;
    std::uint16_t command_port_ = 0;
    StorageTable storages_;
    Kestin::Net::TcpManager tcp_manager_;

    // The set of nodes may have changed since the last snapshot. A late update costs one interval
    // of stale figures.
    std::atomic<bool> transmit_info_dirty_ = false;

    Kestin::Base::WindowsThreadLocker node_locker_{nullptr};
    std::list<NorvaneTransmitNode*> node_list_ KESTIN_GUARDED_BY(node_locker_);

    Kestin::Base::WindowsThreadLocker upload_file_locker_{nullptr};
    std::set<std::string> upload_file_set_ KESTIN_GUARDED_BY(upload_file_locker_);
};
