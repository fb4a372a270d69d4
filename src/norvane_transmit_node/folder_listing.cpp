#include "src/norvane_transmit_node/folder_listing.h"

#include "kestin_base/xml.h"
#include "src/norvane_transmit_node/file_steps.h"
#include "src/norvane_transmit_node/norvane_transmit_node.h"
#include "src/norvane_transmit_service/norvane_transmit_service.h"
#include "src/shared/operation_log.h"

using Kestin::Base::Directory;
using Kestin::Base::Xml;

namespace {

constexpr LogSource log_source{.file = "src/norvane_transmit_node"};

bool add_child(const OperationLog& log, Xml& document, const char* element) {
    if (!document.add_child_element(element, nullptr)) {
        log.error("add_child_element <%s> failed", element);
        return false;
    }
    return true;
}

bool add_attribute(const OperationLog& log, Xml& document, const char* attribute,
                   const std::string& value) {
    if (!document.add_child_attribute(attribute, value)) {
        log.error("add_child_attribute <%s> failed", attribute);
        return false;
    }
    return true;
}

bool add_entry(const OperationLog& log, Xml& document, const Directory& entry) {
    if (entry.sub_path_is_directory()) {
        return add_child(log, document, "folder") &&
               add_attribute(log, document, "name", entry.sub_path_short_name());
    }
    return add_child(log, document, "file") &&
           add_attribute(log, document, "name", entry.sub_path_short_name()) &&
           add_attribute(log, document, "size", std::to_string(entry.sub_path_size())) &&
           add_attribute(log, document, "time", std::to_string(entry.sub_path_time()));
}

}  // namespace

bool make_download_folder_content(Directory& directory, std::string& document) {
    const OperationLog log(log_source);
    document.clear();
    Xml xml;
    if (!xml.add_element("root", nullptr)) {
        log.error("add_element <%s> failed", "root");
        return false;
    }
    while (directory.read()) {
        if (!add_entry(log, xml, directory)) {
            return false;
        }
    }
    if (directory.is_broken()) {
        return false;
    }
    document = xml.get_document();
    return true;
}

// What the path is shows in the status itself; only a directory has a document.
message::Status NorvaneTransmitNode::do_handle_get_path_content_request(
    const message::PathRequest& request, const std::string& path, std::string& document) {
    const OperationLog log = operation_log();
    if (!find_storage(log, request.storage_id)) {
        return message::status_invalid_storage_id;
    }
    const std::string full_path = NorvaneTransmitService::instance().make_transmit_path(
        request.storage_id, request.user_id, path.c_str(), false);
    const char* name = full_path.c_str();
    Kestin::Base::PathFacts facts;
    if (const auto status = examine_path(log, full_path, facts); status != message::status_ok) {
        return status;
    }
    if (!facts.is_directory) {
        return message::status_path_is_file;
    }
    Directory directory;
    if (!directory.open(name)) {
        log.error(system_cause(), "open directory failed (%s)", name);
        return message::status_open_directory_failed;
    }
    if (!make_download_folder_content(directory, document)) {
        log.error("make download folder content failed (%s)", name);
        return message::status_make_folder_content_failed;
    }
    last_listing_size_ = document.size();
    return message::status_path_is_directory;
}
