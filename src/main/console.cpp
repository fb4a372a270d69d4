#include "src/main/console.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <iostream>

void open_closed_streams() {
    int descriptor = 0;
    do {
        descriptor = open("/dev/null", O_RDWR);
    } while (descriptor >= STDIN_FILENO && descriptor <= STDERR_FILENO);
    close(descriptor);
}

void print_line(const char* text) {
    std::cout << text << std::endl;
}

void print_failure(const std::string& sentence) {
    std::string line = "transmit_server: " + sentence;
    const auto is_control = [](unsigned char byte) {
        return byte < 0x20 || byte == 0x7f;
    };
    std::replace_if(line.begin(), line.end(), is_control, ' ');
    std::cerr << line << std::endl;
}
