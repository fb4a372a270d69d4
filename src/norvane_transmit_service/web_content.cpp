#include <algorithm>
#include <cctype>

#include "kestin_base/file.h"
#include "kestin_base/strings.h"
#include "src/command_line/http_status.h"
#include "src/norvane_transmit_service/mime_types.h"
#include "src/norvane_transmit_service/norvane_transmit_service.h"

namespace {

// A larger file goes out from where it lies. Of a smaller one a copy costs less than the descriptor
// that a slow reader would keep open.
constexpr std::int64_t largest_copy = 1 << 20;

// What the file lacks of its own size, because it shrinks meanwhile, reads as zeros.
std::string content_of(Kestin::Base::File& file) {
    std::string content(static_cast<std::size_t>(file.size_at_open()), '\0');
    std::uint64_t got = 0;
    file.read(content.data(), content.size(), got);
    return content;
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
    Kestin::Base::File file;
    if (!file.open(path.c_str(), false, false)) {
        return send_status_page(connection, http_status::not_found);
    }
    if (file.size_at_open() > largest_copy) {
        return send_http_file(*connection, file, mime_type(path));
    }
    const std::string body = content_of(file);
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
