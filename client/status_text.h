#pragma once

#include <cstdint>
#include <string_view>

#include "client/error.h"

namespace transmit {

// What a status of the server means, and what a person can do about it: a sentence each, the first
// without a full stop.
struct StatusText {
    std::string_view meaning;
    std::string_view next_step;
};

StatusText status_text(std::uint16_t status);

// The error of a response with this failing status.
Error refusal(std::uint16_t status);

// True for what may well pass by itself: trying again later makes sense.
bool is_temporary(const Error& error);

}  // namespace transmit
