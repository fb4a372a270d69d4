#pragma once

#include "client/listing.h"
#include "client/remote.h"

namespace transmit::detail {

// How a file gets to its place, given what lies there.
enum class UploadWay {
    none,       // it is there already
    straight,   // the bare conversation
    aside,      // under a side name, and then renamed over what is there
    no_folder,  // a folder is in its place
};

// `there` is null if nothing lies at the target. `forced`: also what is there already is sent, and
// never straight, since a prepare would take it for whole.
UploadWay plan_upload(const Entry* there, const FileStamp& source, bool in_place, bool forced);

}  // namespace transmit::detail
