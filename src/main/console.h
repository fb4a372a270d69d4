#pragma once

// Makes the process ready for `await_stop`. Called by the main thread before any other thread
// starts: SIGTERM is blocked from here on, in this thread and in those that it starts. Standard
// streams that are closed are opened on /dev/null, so that no file of the server takes their place.
void prepare_console();

// Prints the text as one line on the standard output, flushed.
void print_line(const char* text);

// Waits until the standard input gives a line that is exactly "exit", or SIGTERM comes. When the
// input is closed or at its end only the signal is left to wait for. Called by the main thread.
void await_stop();
