#pragma once

#include <string>

// The names that one upload holds against all others: its target and its temporary file. A claim
// is given back when its holder ends; it can be handed on by moving.
class UploadClaim {
  public:
    UploadClaim() = default;
    ~UploadClaim() { give_back(); }
    UploadClaim(UploadClaim&& other) noexcept { swap(other); }
    UploadClaim& operator=(UploadClaim&& other) noexcept {
        give_back();
        swap(other);
        return *this;
    }
    UploadClaim(const UploadClaim&) = delete;
    UploadClaim& operator=(const UploadClaim&) = delete;

    // False, with nothing held: another upload holds one of the names, as its target or as its
    // temporary file. Of two uploads that come at once exactly one gets through.
    bool claim_target(const std::string& target_path, const std::string& temp_path);
    void give_back();

  private:
    void swap(UploadClaim& other) noexcept {
        target_path_.swap(other.target_path_);
        temp_path_.swap(other.temp_path_);
    }

    std::string target_path_;
    std::string temp_path_;
};
