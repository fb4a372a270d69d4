#pragma once

#include <array>
#include <string_view>

// The MIME type of files whose names end in `extension`, which is in lower case and begins with
// its dot.
struct MimeType {
    std::string_view extension;
    std::string_view type;
};

// Every extension once, in byte order.
extern const std::array<MimeType, 344> mime_type_table;
