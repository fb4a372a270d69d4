#include "client/status_text.h"

#include <string>

#include "src/message/status.h"

namespace transmit {

StatusText status_text(std::uint16_t status) {
    using namespace message;
    switch (status) {
        case status_ok:
            return {"the request succeeded", ""};
        case status_invalid_storage_id:
            return {"the server has no storage of this id", "\"transmit storages\" lists the ids."};
        case status_invalid_connection_data:
            return {"the server runs no transfer of this kind on the connection",
                    "Start it again."};
        case status_acquire_event_failed:
            return {"the server has no room for another transfer", "Try again later."};
        case status_path_stat_failed:
            return {"the server couldn't read the path's kind, size or time",
                    "The server's run log tells why."};
        case status_access_failed:
            return {"the path doesn't exist or can't be reached",
                    "\"transmit ls\" shows what its folder holds; names are told apart by case."};
        case status_path_is_file:
            return {"the path is a file", "Name a folder."};
        case status_path_is_directory:
            return {"the path is a folder where a file is wanted",
                    "Name a file in it; get -r fetches folders."};
        case status_create_directory_failed:
            return {"the server couldn't create the folder",
                    "See that no file stands in its place and that the storage can be written."};
        case status_open_directory_failed:
            return {"the server couldn't open the folder", "The server's run log tells why."};
        case status_open_write_failed:
            return {"the server couldn't open the file for writing",
                    "See that the storage can be written and that the path isn't too long."};
        case status_open_read_failed:
            return {"the server couldn't open the file for reading",
                    "See that the file still exists and that the server may read it."};
        case status_read_failed:
            return {"the server couldn't read the file", "The server's run log tells why."};
        case status_write_failed:
            return {"the server could not write (disk full or quota?)",
                    "Make room in the storage; the next attempt goes on from there."};
        case status_seek_failed:
            return {"the server can't start at this place of the file",
                    "Delete the local part and fetch the file anew."};
        case status_rename_failed:
            return {"the server couldn't rename the file",
                    "See that the old path exists and the new one's folder too."};
        case status_delete_failed:
            return {"the server couldn't delete the path",
                    "Roots can't be deleted; else see who owns what lies there."};
        case status_file_incomplete:
            return {"less data arrived than was announced", "Send the file again."};
        case status_file_overflow:
            return {"more data arrived than was announced", "Send the file again."};
        case status_file_in_use:
            return {"another client uploads this file", "Try again when it is done."};
        case status_make_folder_content_failed:
            return {"the server couldn't build the listing", "The server's run log tells why."};
        case status_make_storage_information_failed:
            return {"the server couldn't build the list of storages",
                    "The server's run log tells why."};
        case status_encrypt_failed:
            return {"the server couldn't encipher a block", "The server's run log tells why."};
        case status_decrypt_failed:
            return {"the server couldn't decipher a block",
                    "See that both sides are of one version and send the file again."};
        default:
            return {"the server answered with a status that this client doesn't know",
                    "See that both sides are of one version."};
    }
}

Error refusal(std::uint16_t status) {
    return {ErrorKind::refused, status, std::string(status_text(status).meaning)};
}

bool is_temporary(const Error& error) {
    return error.kind == ErrorKind::connection_lost || error.kind == ErrorKind::file_changed ||
           (error.kind == ErrorKind::refused &&
            (error.status == message::status_file_in_use ||
             error.status == message::status_acquire_event_failed));
}

}  // namespace transmit
