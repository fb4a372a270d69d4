#pragma once

#include <optional>
#include <string>

#include "src/norvane_transmit_service/settings.h"
#include "src/norvane_transmit_service/storage.h"

namespace Kestin::Base {
class Xml;
}

// Reading of the two configuration files, apart from where their text comes from.
namespace configuration {

// Why a document can't be used.
struct Problem {
    std::string text;    // for the run log
    int line = 0;        // of the document
    std::string reason;  // in words for a person
};
using Fault = std::optional<Problem>;

// The settings file: `transmit_server` with an element for each setting. The ports must differ.
Fault read_settings(Kestin::Base::Xml& document, Settings& settings);

// The storage list: `storages` with an `item` for each storage, each with another id. Directories
// come as they are written.
Fault read_storages(Kestin::Base::Xml& document, StorageTable& storages);

}  // namespace configuration
