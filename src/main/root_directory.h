#pragma once

#include <string>

// Makes the folder of the executable the working directory. `path` is the process's argv[0]; one
// without a separator was found through PATH, and the system tells where. `root` receives the
// working directory as the system reports it, with "/" at its end. On false the
// reason is printed.
bool get_root_directory(const char* path, std::string& root);
