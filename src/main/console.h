#pragma once

#include <string>

// Opens standard streams that are closed on /dev/null, so that no file of the server takes their
// place. Called before anything else opens a file.
void open_closed_streams();

// Prints the text as one line on the standard output, flushed.
void print_line(const char* text);

// Prints one sentence for a person on the standard error, as one line.
void print_failure(const std::string& sentence);
