#pragma once

#include <boost/thread/mutex.hpp>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "aes_ecb/aes_ecb.h"
#include "kestin_base/file_system.h"
#include "src/message/catalogue.h"
#include "src/message/payload_key.h"
#include "src/message/status.h"
#include "src/norvane_session/norvane_session.h"
#include "src/norvane_transmit_node/rate_window.h"
#include "src/norvane_transmit_node/upload_plan.h"
#include "src/roster/published_node.h"
#include "src/shared/live_node_record.h"
#include "src/shared/node_record.h"
#include "src/shared/object_pool.h"
#include "src/shared/operation_log.h"
#include "src/storage_gate/storage_gate.h"
#include "src/tcp_event/download_file_tcp_event.h"
#include "src/tcp_event/tcp_event_base.h"
#include "src/tcp_event/upload_file_tcp_event.h"

// The server's side of one connection of the transmit port: takes requests out of the receive
// buffer, serves and answers them, and owns the transfer that may run. Nodes come from a pool and
// go back there; they are never destroyed while the process runs.
//
// All of it runs in the callbacks of the node's connection, one at a time, but for get_node_record,
// which any thread may call while the node is on the roster.
class NorvaneTransmitNode : public INorvaneSession, public PublishedNode {
  public:
    // A node that is as new, but for its send window and its speed limit; null if none can be made.
    static NorvaneTransmitNode* acquire_transmit_node();
    static void release_transmit_node(NorvaneTransmitNode* node);

    NorvaneTransmitNode();
    ~NorvaneTransmitNode() override;

    bool on_recv_connect_response(Kestin::Net::TcpConnectionBase* connection,
                                  const char* peer_address, std::uint16_t peer_port) override;
    bool on_recv_disconnect_response(Kestin::Net::TcpConnectionBase* connection,
                                     const char* peer_address, std::uint16_t peer_port) override;
    // False ends the connection: an unknown message type, or a fault of a buffer.
    bool on_recv_data(Kestin::Net::TcpConnectionBase* connection) override;
    bool on_send_data(Kestin::Net::TcpConnectionBase* connection) override;

    // Installs a transfer, or ends the present one with null. Owns `event` from here on.
    void set_connection_transmit_event(TcpEventBase* event);

    NodeRecord& get_node_record(NodeRecord& out) override;

    // The storage of the present transfer; null without a transfer.
    StorageWork* transfer_storage() const {
        return transmit_event_ != nullptr ? transfer_storage_ : nullptr;
    }

  private:
    using Connection = Kestin::Net::TcpConnectionBase;
    using Handler = bool (NorvaneTransmitNode::*)(Connection*);
    struct Dispatch;
    // What a request works on, beside the node itself.
    enum class Work { nothing, transfer, storage, storage_and_transfer, listing };
    enum class Taken { incomplete, whole, failed };

    // The node itself: norvane_transmit_node.cpp.
    void reset_transmit_node();
    void reset_transfer();
    void release_event();
    void return_to_pool();
    void turn_rate_window();

    // The log of the operation that the caller begins.
    OperationLog operation_log(const char* function = __builtin_FUNCTION()) const;

    // Takes the places that the work needs (requests.cpp). False: there is none, and the connection
    // is postponed with the request in its receive buffer.
    bool admit(Connection& connection, Work work, StoragePass& pass);

    // How every request leaves the receive buffer and is answered: framing.h.
    static bool copy_received(const OperationLog& log, Connection& connection, void* destination,
                              std::uint64_t length);
    static bool move_received(const OperationLog& log, Connection& connection, void* destination,
                              std::uint64_t length);
    static bool drop_received(const OperationLog& log, Connection& connection,
                              std::uint64_t length);
    template <typename Row, typename Tails>
    Taken take(const OperationLog& log, Connection& connection, typename Row::Request& request,
               Tails& tails);
    template <typename Row>
    Taken take_record(const OperationLog& log, Connection& connection,
                      typename Row::Request& request);
    template <typename Row, typename Tails>
    Taken take_record_and_tails(const OperationLog& log, Connection& connection,
                                typename Row::Request& request, Tails& tails);
    template <typename Row>
    bool serve(Connection* connection, auto work, const char* handler = __builtin_FUNCTION());
    template <typename Response>
    bool send_response(Connection* connection, Response response, std::string_view tail = {});

    template <typename Event>
    Event* find_event(const OperationLog& log);

    // One pair a request. A handle_ member takes the request out of the buffer, has the work done
    // and answers; its false ends the connection. A do_handle_ member does the work, fills in what
    // the response holds beside its status, and gives the status.
    bool handle_upload_file_prepare_request(Connection* connection);
    bool handle_upload_file_data_request(Connection* connection);
    bool handle_upload_file_finish_request(Connection* connection);
    bool handle_download_file_prepare_request(Connection* connection);
    bool handle_download_file_data_request(Connection* connection);
    bool handle_download_file_finish_request(Connection* connection);
    bool handle_create_directory_request(Connection* connection);
    bool handle_delete_path_request(Connection* connection);
    bool handle_rename_path_request(Connection* connection);
    bool handle_set_user_information_request(Connection* connection);
    bool handle_get_storage_information_request(Connection* connection);
    bool handle_get_norvane_node_count_request(Connection* connection);
    bool handle_set_transmit_speed_request(Connection* connection);
    bool handle_check_storage_id_request(Connection* connection);
    bool handle_get_path_content_request(Connection* connection);
    bool handle_test_upload_data_request(Connection* connection);
    bool handle_test_download_data_request(Connection* connection);
    bool handle_cleanup_connection_request(Connection* connection);

    message::Status do_handle_upload_file_prepare_request(
        const message::UploadFilePrepareRequest& request, const std::string& path,
        message::UploadFilePrepareResponse& response);
    // Takes one block or several; `handled` of them are done with when it returns, and the status
    // is that of the last of these.
    message::Status do_handle_upload_file_data_request(
        std::span<const UploadFileTcpEvent::Block> blocks, std::size_t& handled);
    message::Status do_handle_upload_file_finish_request();
    message::Status do_handle_download_file_prepare_request(
        const message::DownloadFilePrepareRequest& request, const std::string& path,
        message::DownloadFilePrepareResponse& response);
    message::Status do_handle_download_file_data_request(
        const message::DownloadFileDataRequest& request);
    message::Status do_handle_download_file_finish_request();
    message::Status do_handle_create_directory_request(const message::PathRequest& request,
                                                       const std::string& path);
    message::Status do_handle_delete_path_request(const message::PathRequest& request,
                                                  const std::string& path);
    message::Status do_handle_rename_path_request(const message::RenamePathRequest& request,
                                                  const std::string& old_path,
                                                  const std::string& new_path);
    message::Status do_handle_set_user_information_request(
        const message::SetUserInformationRequest& request, const std::string& text);
    message::Status do_handle_get_storage_information_request(std::string& document);
    message::Status do_handle_get_norvane_node_count_request(message::NodeCountResponse& response);
    message::Status do_handle_set_transmit_speed_request(
        const message::SetTransmitSpeedRequest& request);
    message::Status do_handle_check_storage_id_request(
        const message::CheckStorageIdRequest& request);
    message::Status do_handle_get_path_content_request(const message::PathRequest& request,
                                                       const std::string& path,
                                                       std::string& document);
    message::Status do_handle_test_upload_data_request(const message::TestDataRequest& request);
    message::Status do_handle_test_download_data_request(const message::TestDataRequest& request,
                                                         std::string& data);
    message::Status do_handle_cleanup_connection_request();

    // The conversations' own steps, each beside its handlers.
    message::Status begin_upload(const OperationLog& log, std::unique_ptr<TemporaryFile> temporary,
                                 const std::string& target_path, Kestin::Base::PathFacts target,
                                 UploadAnnouncement announcement, std::int64_t& offset);
    bool send_download_file_data(Connection* connection, DownloadFileTcpEvent* event);
    bool send_download_data_response(Connection* connection, message::Status status,
                                     std::string_view data);
    struct DownloadChunk;
    message::Status read_chunk(const OperationLog& log, Connection& connection,
                               DownloadFileTcpEvent& event, DownloadChunk& chunk) const;
    bool send_chunk(Connection& connection, const DownloadChunk& chunk);
    bool end_download(Connection* connection, message::Status status);
    bool encipher(std::string_view& payload, ByteArray& ciphered) const;
    bool decipher(std::span<const std::uint8_t>& block, ByteArray& plain) const;

    LiveNodeRecord node_record_;
    RateWindow rate_window_;
    message::PayloadKey payload_key_ = message::make_payload_key();
    // True while on_send_data is to pump file data.
    bool download_active_ = false;
    // Read by the callbacks without the lock: they alone change it, one at a time.
    TcpEventBase* transmit_event_ = nullptr;
    // The storage of the request at hand, and that of the present transfer.
    StorageWork* request_storage_ = nullptr;
    StorageWork* transfer_storage_ = nullptr;
    ListingLine::Ticket listing_ticket_ = 0;
    std::size_t last_listing_size_ = 0;
    // Held while the event changes and while the node is reset.
    boost::mutex node_lock_;
};

// The idle nodes of the process.
ObjectPool<NorvaneTransmitNode>& node_pool();
