#pragma once

#include <string>

#include "kestin_base/directory.h"

// The entries of an open directory as an XML document, in the order of the system: `folder` with
// its name, `file` with name, size in bytes and time in seconds since 1970-01-01 UTC. Whatever
// bytes a name holds, the document is well-formed (kestin_base/xml.h). False, with `document`
// empty: it couldn't be built.
bool make_download_folder_content(Kestin::Base::Directory& directory, std::string& document);
