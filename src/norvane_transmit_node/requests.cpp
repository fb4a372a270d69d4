#include <array>
#include <cstddef>
#include <cstdint>

#include "kestin_base/byte_stream.h"
#include "src/norvane_transmit_node/framing.h"
#include "src/norvane_transmit_node/upload_blocks.h"
#include "src/norvane_transmit_service/norvane_transmit_service.h"

namespace {

// How each request that names a storage begins.
struct StorageIdPrefix {
    std::uint32_t type_and_flags;
    std::uint32_t storage_id;
};

template <typename... Requests>
constexpr bool begin_with_storage_id =
    ((offsetof(Requests, storage_id) == offsetof(StorageIdPrefix, storage_id)) && ...);
static_assert(
    begin_with_storage_id<message::UploadFilePrepareRequest, message::DownloadFilePrepareRequest,
                          message::PathRequest, message::RenamePathRequest>);

}  // namespace

// The map of the protocol: which message goes to which handler, and which handler has which work.

struct NorvaneTransmitNode::Dispatch {
    struct Entry {
        std::uint16_t type;
        Handler handler;
        Work work;
    };
    static constexpr std::array<Entry, message::request_count> table = {{
        {message::UploadFilePrepare::type, &NorvaneTransmitNode::handle_upload_file_prepare_request,
         Work::storage_and_transfer},
        {message::UploadFileData::type, &NorvaneTransmitNode::handle_upload_file_data_request,
         Work::transfer},
        {message::UploadFileFinish::type, &NorvaneTransmitNode::handle_upload_file_finish_request,
         Work::transfer},
        {message::DownloadFilePrepare::type,
         &NorvaneTransmitNode::handle_download_file_prepare_request, Work::storage_and_transfer},
        {message::DownloadFileData::type, &NorvaneTransmitNode::handle_download_file_data_request,
         Work::transfer},
        {message::DownloadFileFinish::type,
         &NorvaneTransmitNode::handle_download_file_finish_request, Work::transfer},
        {message::CreateDirectory::type, &NorvaneTransmitNode::handle_create_directory_request,
         Work::storage},
        {message::DeletePath::type, &NorvaneTransmitNode::handle_delete_path_request,
         Work::storage},
        {message::RenamePath::type, &NorvaneTransmitNode::handle_rename_path_request,
         Work::storage},
        {message::SetUserInformation::type,
         &NorvaneTransmitNode::handle_set_user_information_request, Work::nothing},
        {message::GetStorageInformation::type,
         &NorvaneTransmitNode::handle_get_storage_information_request, Work::nothing},
        {message::GetNorvaneNodeCount::type,
         &NorvaneTransmitNode::handle_get_norvane_node_count_request, Work::nothing},
        {message::SetTransmitSpeed::type, &NorvaneTransmitNode::handle_set_transmit_speed_request,
         Work::nothing},
        {message::CheckStorageId::type, &NorvaneTransmitNode::handle_check_storage_id_request,
         Work::nothing},
        {message::GetPathContent::type, &NorvaneTransmitNode::handle_get_path_content_request,
         Work::listing},
        {message::TestUploadData::type, &NorvaneTransmitNode::handle_test_upload_data_request,
         Work::nothing},
        {message::TestDownloadData::type, &NorvaneTransmitNode::handle_test_download_data_request,
         Work::nothing},
        {message::CleanupConnection::type, &NorvaneTransmitNode::handle_cleanup_connection_request,
         Work::transfer},
    }};

    // Requests have the even types from 0 on, so a type's half is its place in the table.
    static consteval bool is_in_order() {
        for (std::size_t index = 0; index < table.size(); ++index) {
            if (table[index].type != 2 * index) {
                return false;
            }
        }
        return true;
    }

    // Null: there is no such request.
    static constexpr const Entry* find(std::uint16_t type) {
        const bool exists = type % 2 == 0 && type / 2U < table.size();
        return exists ? &table[type / 2U] : nullptr;
    }
};

// A handler that took a request has counted its bytes, or, if the request ended a transfer, has
// cleared the window; one that lacks bytes leaves the mark where it was, and the loop ends.
bool NorvaneTransmitNode::on_recv_data(Connection* connection) {
    static_assert(Dispatch::is_in_order());
    turn_rate_window();
    if (connection == nullptr) {
        return false;
    }
    const OperationLog log = operation_log();
    for (RateWindow::Mark before; before != rate_window_.mark();) {
        before = rate_window_.mark();
        std::uint16_t type = 0;
        if (connection->recv_buffer_size() < sizeof type) {
            return true;
        }
        if (!copy_received(log, *connection, &type, sizeof type)) {
            return false;
        }
        Kestin::Base::ByteStream::net_to_host(&type, sizeof type);
        const Dispatch::Entry* request = Dispatch::find(type);
        if (request == nullptr) {
            log.error("unknown message type (%u)", type);
            return false;
        }
        StoragePass pass;
        if (!admit(*connection, request->work, pass)) {
            connection->postpone();
            return true;
        }
        if (!(this->*request->handler)(connection)) {
            return false;
        }
    }
    return true;
}

// Where a request names its storage. Before the bytes are there, nothing is worked on.
bool NorvaneTransmitNode::admit(Connection& connection, Work work, StoragePass& pass) {
    if (work == Work::nothing) {
        return true;
    }
    const bool works_on_transfer = work == Work::transfer || work == Work::storage_and_transfer;
    if (works_on_transfer && !pass.enter(transfer_storage())) {
        return false;
    }
    StorageIdPrefix prefix{};
    if (work == Work::transfer || !connection.recv_buffer_copy_len(&prefix, sizeof prefix)) {
        return true;
    }
    Kestin::Base::ByteStream::net_to_host(&prefix.storage_id, sizeof prefix.storage_id);
    request_storage_ = NorvaneTransmitService::instance().storage_gate().find(prefix.storage_id);
    return pass.enter(request_storage_) &&
           (work != Work::listing || request_storage_ == nullptr ||
            pass.enter_listings(*request_storage_, listing_ticket_, last_listing_size_));
}

bool NorvaneTransmitNode::copy_received(const OperationLog& log, Connection& connection,
                                        void* destination, std::uint64_t length) {
    if (!connection.recv_buffer_copy_len(destination, length)) {
        log.error("recv buffer copy len failed");
        return false;
    }
    return true;
}

bool NorvaneTransmitNode::move_received(const OperationLog& log, Connection& connection,
                                        void* destination, std::uint64_t length) {
    if (!connection.recv_buffer_move_len(destination, length)) {
        log.error("recv buffer move len failed");
        return false;
    }
    return true;
}

bool NorvaneTransmitNode::drop_received(const OperationLog& log, Connection& connection,
                                        std::uint64_t length) {
    if (!connection.recv_buffer_drop_len(length)) {
        log.error("recv buffer drop len failed");
        return false;
    }
    return true;
}

bool NorvaneTransmitNode::handle_upload_file_prepare_request(Connection* connection) {
    return serve<message::UploadFilePrepare>(
        connection, &NorvaneTransmitNode::do_handle_upload_file_prepare_request);
}

// File data goes from where it was received straight on, as many messages at once as stand there.
// A block that went well has no answer; one that failed ends whatever transfer there is, and those
// behind it are looked at anew.
bool NorvaneTransmitNode::handle_upload_file_data_request(Connection* connection) {
    const OperationLog log = operation_log();
    const std::uint64_t available = connection->recv_buffer_size();
    const std::uint8_t* received = connection->recv_buffer_front(available);
    if (received == nullptr) {
        log.error("recv buffer move len failed");
        return false;
    }
    const UploadBlocks blocks = UploadBlocks::in({received, available});
    if (blocks.all().empty()) {
        return true;
    }
    std::size_t handled = 0;
    const message::Status status = do_handle_upload_file_data_request(blocks.all(), handled);
    const std::uint64_t length = UploadBlocks::length_on_wire(blocks.all().first(handled));
    rate_window_.count_in(length);
    if (!drop_received(log, *connection, length)) {
        return false;
    }
    if (status == message::status_ok) {
        return true;
    }
    set_connection_transmit_event(nullptr);
    return send_response(
        connection,
        message::PlainResponse{.type = message::UploadFileData::response_type, .status = status});
}

bool NorvaneTransmitNode::handle_upload_file_finish_request(Connection* connection) {
    return serve<message::UploadFileFinish>(
        connection, &NorvaneTransmitNode::do_handle_upload_file_finish_request);
}

bool NorvaneTransmitNode::handle_download_file_prepare_request(Connection* connection) {
    return serve<message::DownloadFilePrepare>(
        connection, &NorvaneTransmitNode::do_handle_download_file_prepare_request);
}

// The answer is the stream of data responses, whose first batch goes out at once.
bool NorvaneTransmitNode::handle_download_file_data_request(Connection* connection) {
    message::DownloadFileDataRequest request{};
    const Taken taken =
        take_record<message::DownloadFileData>(operation_log(), *connection, request);
    if (taken != Taken::whole) {
        return taken == Taken::incomplete;
    }
    const message::Status status = do_handle_download_file_data_request(request);
    if (status != message::status_ok) {
        return end_download(connection, status);
    }
    return send_download_file_data(connection, static_cast<DownloadFileTcpEvent*>(transmit_event_));
}

bool NorvaneTransmitNode::handle_download_file_finish_request(Connection* connection) {
    return serve<message::DownloadFileFinish>(
        connection, &NorvaneTransmitNode::do_handle_download_file_finish_request);
}

bool NorvaneTransmitNode::handle_create_directory_request(Connection* connection) {
    return serve<message::CreateDirectory>(
        connection, &NorvaneTransmitNode::do_handle_create_directory_request);
}

bool NorvaneTransmitNode::handle_delete_path_request(Connection* connection) {
    return serve<message::DeletePath>(connection,
                                      &NorvaneTransmitNode::do_handle_delete_path_request);
}

bool NorvaneTransmitNode::handle_rename_path_request(Connection* connection) {
    return serve<message::RenamePath>(connection,
                                      &NorvaneTransmitNode::do_handle_rename_path_request);
}

bool NorvaneTransmitNode::handle_set_user_information_request(Connection* connection) {
    return serve<message::SetUserInformation>(
        connection, &NorvaneTransmitNode::do_handle_set_user_information_request);
}

bool NorvaneTransmitNode::handle_get_storage_information_request(Connection* connection) {
    return serve<message::GetStorageInformation>(
        connection, &NorvaneTransmitNode::do_handle_get_storage_information_request);
}

bool NorvaneTransmitNode::handle_get_norvane_node_count_request(Connection* connection) {
    return serve<message::GetNorvaneNodeCount>(
        connection, &NorvaneTransmitNode::do_handle_get_norvane_node_count_request);
}

bool NorvaneTransmitNode::handle_set_transmit_speed_request(Connection* connection) {
    return serve<message::SetTransmitSpeed>(
        connection, &NorvaneTransmitNode::do_handle_set_transmit_speed_request);
}

bool NorvaneTransmitNode::handle_check_storage_id_request(Connection* connection) {
    return serve<message::CheckStorageId>(connection,
                                          &NorvaneTransmitNode::do_handle_check_storage_id_request);
}

bool NorvaneTransmitNode::handle_get_path_content_request(Connection* connection) {
    return serve<message::GetPathContent>(connection,
                                          &NorvaneTransmitNode::do_handle_get_path_content_request);
}

bool NorvaneTransmitNode::handle_test_upload_data_request(Connection* connection) {
    return serve<message::TestUploadData>(connection,
                                          &NorvaneTransmitNode::do_handle_test_upload_data_request);
}

bool NorvaneTransmitNode::handle_test_download_data_request(Connection* connection) {
    return serve<message::TestDownloadData>(
        connection, &NorvaneTransmitNode::do_handle_test_download_data_request);
}

bool NorvaneTransmitNode::handle_cleanup_connection_request(Connection* connection) {
    return serve<message::CleanupConnection>(
        connection, &NorvaneTransmitNode::do_handle_cleanup_connection_request);
}
