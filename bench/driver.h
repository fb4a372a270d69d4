#pragma once

#include <chrono>
#include <cstdint>

#include "bench/transfer.h"

// A client that costs as little as possible, so that what is measured is the serving side: received
// data is thrown away in the kernel, sent data is one block again and again. Moves one file over a
// connection of its own and gives the time from the first request to the last answer. Throws if
// anything but success comes.
std::chrono::duration<double> drive(std::uint16_t port, const Transfer& transfer);
