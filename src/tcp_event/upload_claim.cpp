#include "src/tcp_event/upload_claim.h"

#include "src/norvane_transmit_service/norvane_transmit_service.h"

namespace {

// Claims a name and notes it in `held`, or does neither.
bool hold(std::string name, std::string& held) {
    if (!NorvaneTransmitService::instance().add_upload_file(name)) {
        return false;
    }
    held.swap(name);
    return true;
}

void let_go(std::string& held) {
    if (!held.empty()) {
        NorvaneTransmitService::instance().remove_upload_file(held);
        held.clear();
    }
}

}  // namespace

bool UploadClaim::claim_target(const std::string& target_path, const std::string& temp_path) {
    give_back();
    UploadClaim both;
    if (!hold(target_path, both.target_path_) || !hold(temp_path, both.temp_path_)) {
        return false;
    }
    swap(both);
    return true;
}

void UploadClaim::give_back() {
    let_go(temp_path_);
    let_go(target_path_);
}
