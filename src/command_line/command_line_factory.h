#pragma once

#include <map>
#include <string>

#include "kestin_base/uncopy.h"
#include "src/command_line/command_line_base.h"

// The commands by their names. Never changed after construction, so read without a lock. Process
// singleton.
class CommandLineFactory : private Kestin::Base::Uncopy {
  public:
    static CommandLineFactory& instance();

    // Null: no command has exactly this name, or none could be made.
    CommandLineBase* create_command(const std::string& name) const;
    // Sets the caller's pointer to null. Null is ignored.
    static void release_command(CommandLineBase*& command);

  private:
    CommandLineFactory();
    ~CommandLineFactory() = default;

    std::map<std::string, CommandLineBase* (*)()> creators_;
};
