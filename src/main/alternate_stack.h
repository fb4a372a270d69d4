#pragma once

// Gives the calling thread a stack of its own for signal handlers, for as long as the thread lives,
// so that the crash filter can work after the thread's own stack has overflowed.
void use_alternate_stack();
