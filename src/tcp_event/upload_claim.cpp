#include "src/tcp_event/upload_claim.h"

#include "src/norvane_transmit_service/norvane_transmit_service.h"

bool UploadClaim::claim_target(const std::string& target_path, const std::string& temp_path) {
    give_back();
    auto& service = NorvaneTransmitService::instance();
    if (!service.add_upload_file(target_path)) {
        return false;
    }
    if (!service.add_upload_file(temp_path)) {
        service.remove_upload_file(target_path);
        return false;
    }
    target_path_ = target_path;
    temp_path_ = temp_path;
    return true;
}

void UploadClaim::give_back() {
    if (target_path_.empty()) {
        return;
    }
    auto& service = NorvaneTransmitService::instance();
    service.remove_upload_file(temp_path_);
    service.remove_upload_file(target_path_);
    temp_path_.clear();
    target_path_.clear();
}
