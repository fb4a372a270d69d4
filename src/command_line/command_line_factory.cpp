#include "src/command_line/command_line_factory.h"

#include "src/command_line/transmit_list_command_line.h"
#include "src/command_line/transmit_statistics_command_line.h"

CommandLineFactory& CommandLineFactory::instance() {
    static CommandLineFactory factory;
    return factory;
}

CommandLineFactory::CommandLineFactory()
    : creators_{{"transmit_list", &TransmitListCommandLine::create},
                {"transmit_statistics", &TransmitStatisticsCommandLine::create}} {
}

CommandLineBase* CommandLineFactory::create_command(const std::string& name) const {
    const auto creator = creators_.find(name);
    return creator == creators_.end() ? nullptr : creator->second();
}

void CommandLineFactory::release_command(CommandLineBase*& command) {
    if (command != nullptr) {
        command->release();
        command = nullptr;
    }
}
