#include <algorithm>
#include <cctype>

#include "kestin_base/file.h"
#include "kestin_base/file_system.h"
#include "kestin_base/strings.h"
#include "src/command_line/http_status.h"
#include "src/norvane_transmit_service/mime_types.h"
#include "src/norvane_transmit_service/norvane_transmit_service.h"

namespace {

// An answer goes out in one piece, and one larger than this, with its head, wouldn't be taken.
constexpr std::int64_t largest_file = std::int64_t{255} * 1024 * 1024;

// False: no regular file that can be read, or one beyond the limit. What the file lacks of its own
// size, because it shrinks meanwhile, reads as zeros.
bool read_file(const std::string& path, std::string& content) {
    Kestin::Base::File file;
    std::int64_t size = 0;
    if (!file.open(path.c_str(), false, false) ||
        !Kestin::Base::file_get_size(path.c_str(), size) || size > largest_file) {
        return false;
    }
    content.resize(static_cast<std::size_t>(size));
    std::uint64_t got = 0;
    file.read(content.data(), content.size(), got);
    return true;
}

}  // namespace

// A URL is a file's name as it stands: nothing is decoded, and nothing behind a "?" is cut off.
bool NorvaneTransmitService::answer_file(Kestin::Net::TcpConnectionBase* connection,
                                         const std::string& url) {
    std::string path = url;
    Kestin::Base::kestin_string_trim(path, Kestin::Base::blank_characters);
    if (path.find("..") != std::string::npos) {
        return send_status_page(connection, http_status::forbidden);
    }
    if (path == "/") {
        path += "main.html";
    }
    path = root_directory_ + "www" + path;
    std::string body;
    if (!read_file(path, body)) {
        return send_status_page(connection, http_status::not_found);
    }
    return send_http_data(connection, body.data(), body.size(), http_status::ok, mime_type(path));
}

std::string NorvaneTransmitService::mime_type(const std::string& path) const {
    std::string extension = path.substr(std::min(path.rfind('.'), path.size()));
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char byte) { return static_cast<char>(std::tolower(byte)); });
    const auto type = mime_types_.find(extension);
    return type != mime_types_.end() ? type->second : "application/octet-stream";
}

void NorvaneTransmitService::fill_mime_types() {
    for (const MimeType& row : mime_type_table) {
        mime_types_.emplace(row.extension, row.type);
    }
}
