#pragma once

#include "src/command_line/command_line_base.h"
#include "src/shared/object_pool.h"

// A command class whose objects come from a pool of their own.
template <typename Command>
class PooledCommandLine : public CommandLineBase {
  public:
    // Process singleton.
    static ObjectPool<Command>& pool() {
        static ObjectPool<Command> objects;
        return objects;
    }

    // Null if none can be made.
    static CommandLineBase* create() { return pool().acquire(); }

    void release() override {
        reset();
        auto* command = static_cast<Command*>(this);
        pool().release(command);
    }
};
