#pragma once

#include <cstddef>

#include "kestin_base/uncopy.h"

// The standard input, read for one thing: whether a line of it is exactly "exit".
class ConsoleInput : private Kestin::Base::Uncopy {
  public:
    ConsoleInput();
    ~ConsoleInput();

    // What poll(2) waits for.
    int descriptor() const { return descriptor_; }

    // Reads what has arrived. `nothing`: the input is at its end, or the terminal belongs to
    // another job. `exit`: a line, or the rest before the end, is the word.
    enum class Result { some, nothing, exit };
    Result read();

    // Whether bytes may still come after a read that gave nothing: a terminal goes on after its
    // end-of-input key and comes back to a background job, a FIFO gets another writer.
    bool may_go_on() const { return may_go_on_; }

  private:
    // How far the line being read is the exit word.
    struct Line {
        std::size_t matched = 0;
        bool differs = false;

        bool is_exit() const;
        void add(char byte);
    };

    int descriptor_;
    bool may_go_on_;
    Line line_;
};
