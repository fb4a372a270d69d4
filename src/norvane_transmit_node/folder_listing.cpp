#include "src/norvane_transmit_node/folder_listing.h"

#include "kestin_base/log.h"
#include "kestin_base/xml.h"
#include "src/norvane_transmit_node/norvane_transmit_node.h"
#include "src/norvane_transmit_service/norvane_transmit_service.h"
#include "src/shared/log_place.h"

using Kestin::Base::Directory;
using Kestin::Base::Xml;

namespace {

bool add_child(Xml& document, const char* element) {
    if (!document.add_child_element(element, nullptr)) {
        kestin_run_log(KESTIN_LOG_ERROR, LOG_PLACE, "add_child_element <%s> failed", element);
        return false;
    }
    return true;
}

bool add_attribute(Xml& document, const char* attribute, const std::string& value) {
    if (!document.add_child_attribute(attribute, value)) {
        kestin_run_log(KESTIN_LOG_ERROR, LOG_PLACE, "add_child_attribute <%s> failed", attribute);
        return false;
    }
    return true;
}

bool add_entry(Xml& document, const Directory& entry) {
    if (entry.sub_path_is_directory()) {
        return add_child(document, "folder") &&
               add_attribute(document, "name", entry.sub_path_short_name());
    }
    return add_child(document, "file") &&
           add_attribute(document, "name", entry.sub_path_short_name()) &&
           add_attribute(document, "size", std::to_string(entry.sub_path_size())) &&
           add_attribute(document, "time", std::to_string(entry.sub_path_time()));
}

}  // namespace

bool make_download_folder_content(Directory& directory, std::string& document) {
    document.clear();
    Xml xml;
    if (!xml.add_element("root", nullptr)) {
        kestin_run_log(KESTIN_LOG_ERROR, LOG_PLACE, "add_element <%s> failed", "root");
        return false;
    }
    while (directory.read()) {
        if (!add_entry(xml, directory)) {
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
    if (!find_storage(request.storage_id)) {
        return message::status_invalid_storage_id;
    }
    const std::string full_path = NorvaneTransmitService::instance().make_transmit_path(
        request.storage_id, request.user_id, path.c_str(), false);
    const char* name = full_path.c_str();
    Kestin::Base::PathFacts facts;
    if (const auto status = examine_path(full_path, facts); status != message::status_ok) {
        return status;
    }
    if (!facts.is_directory) {
        return message::status_path_is_file;
    }
    Directory directory;
    if (!directory.open(name)) {
        kestin_run_log(KESTIN_LOG_ERROR, LOG_PLACE, "[%I64u] open directory failed (%s)",
                       session_id(), name);
        return message::status_open_directory_failed;
    }
    if (!make_download_folder_content(directory, document)) {
        kestin_run_log(KESTIN_LOG_ERROR, LOG_PLACE,
                       "[%I64u] make download folder content failed (%s)", session_id(), name);
        return message::status_make_folder_content_failed;
    }
    return message::status_path_is_directory;
}
