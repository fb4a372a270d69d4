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

// Why a document can't be used, in the words of the run log; nothing if it can.
using Fault = std::optional<std::string>;

// The settings file: `transmit_server` with an element for each setting, all of them required.
Fault read_settings(Kestin::Base::Xml& document, Settings& settings);

// The storage list: `storages` with an `item` for each storage, of which a later one replaces an
// earlier one of the same id. Directories come as they are written.
Fault read_storages(Kestin::Base::Xml& document, StorageTable& storages);

}  // namespace configuration
