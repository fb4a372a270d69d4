#pragma once

#include <string>

// The text that a client describes itself with, made fit to stand raw in a JSON document as far as
// its ends tell: white space around it and all backslashes removed, and "{}" in its place if it
// doesn't begin with "{" and end with "}", holds a zero byte, or is longer than the 1023 bytes that
// a node keeps.
std::string clean_user_information(std::string text);
