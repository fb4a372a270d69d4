#pragma once

#include <cstdint>

namespace message {

// The `status` of every response; nowhere else does a number stand for one. 1, 2 and 5 are sent by
// nothing.
enum Status : std::uint16_t {
    // The request succeeded. In upload_file_prepare: the file is complete already.
    status_ok = 0,
    // The storage id isn't configured.
    status_invalid_storage_id = 3,
    // The request needs a transfer of its kind and the node has none.
    status_invalid_connection_data = 4,
    // No transfer could be set up.
    status_acquire_event_failed = 6,
    // The path's kind, size or time couldn't be read.
    status_path_stat_failed = 7,
    // The path doesn't exist or can't be reached.
    status_access_failed = 8,
    // get_path_content: the path is a file; no failure.
    status_path_is_file = 9,
    // get_path_content: a listing follows. Elsewhere: a file was wanted.
    status_path_is_directory = 10,
    // A directory couldn't be created.
    status_create_directory_failed = 11,
    // The directory couldn't be opened for listing.
    status_open_directory_failed = 12,
    // The temporary file couldn't be opened for writing.
    status_open_write_failed = 13,
    // The file couldn't be opened for reading.
    status_open_read_failed = 14,
    // Reading the file failed.
    status_read_failed = 15,
    // Writing the file failed.
    status_write_failed = 16,
    // The start offset couldn't be set in the file.
    status_seek_failed = 17,
    // A rename failed.
    status_rename_failed = 18,
    // A file or path couldn't be deleted.
    status_delete_failed = 19,
    // upload_file_prepare: send from `offset` on. In a finish: too little data arrived.
    status_file_incomplete = 20,
    // More data arrived than announced.
    status_file_overflow = 21,
    // Another client uploads the same file.
    status_file_in_use = 22,
    // The listing couldn't be built.
    status_make_folder_content_failed = 23,
    // The storage list couldn't be built.
    status_make_storage_information_failed = 24,
    // A block of file data couldn't be enciphered.
    status_encrypt_failed = 25,
    // A block of file data couldn't be deciphered.
    status_decrypt_failed = 26,
};

}  // namespace message
