#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// The bytes of each request as a client puts them on the wire.
namespace request {

struct Upload {
    std::string path;
    std::int64_t size = 0;
    std::int64_t time = 1000;
    bool encrypted = false;
    std::uint32_t user_id = 0;
    std::uint32_t storage_id = 1;
};

struct Download {
    std::string path;
    bool encrypted = false;
    std::uint32_t user_id = 0;
    std::uint32_t storage_id = 1;
};

struct Place {
    std::uint32_t user_id = 0;
    std::uint32_t storage_id = 1;
};

std::string upload_file_prepare(const Upload& upload);
std::string upload_file_data(std::string_view data);
std::string upload_file_finish();
std::string download_file_prepare(const Download& download);
std::string download_file_data(std::int64_t offset);
std::string download_file_finish();
std::string create_directory(std::string_view path, Place place = {});
std::string delete_path(std::string_view path, Place place = {});
std::string rename_path(std::string_view from, std::string_view to, Place place = {});
std::string set_user_information(std::string_view text);
std::string get_storage_information();
std::string get_norvane_node_count();
std::string set_transmit_speed(std::uint32_t bytes_per_second);
std::string check_storage_id(std::uint32_t storage_id);
std::string get_path_content(std::string_view path, Place place = {});
std::string test_upload_data(std::string_view data);
std::string test_download_data(std::uint16_t length);
std::string cleanup_connection();

// The tail of an upload_file_data message of an encrypted upload.
std::string enciphered(std::string_view plain);

}  // namespace request
