// Shared by the parts of the guest library. The library implements the system functions that
// programs call too often to call into the model, where a call costs as much as thousands of
// instructions.
#pragma once

#include <errno.h>
#include <stddef.h>
#include <stdint.h>

#define EXPORT __attribute__((visibility("default")))

enum
{
    kKeys = 128
};

// What pthread_t points to. The blocks of thread-local variables follow.
struct thread
{
    int error;
    void* values[kKeys];
};

// Set by the model before it runs a thread.
extern struct thread* current_thread;

// Every function here that programs call in loops calls this. Now and then it lets other threads
// run and delivers signals.
void tick(void);

// Functions of the model, which sets these pointers when it loads this library.
extern void (*host_tick)(void);
// Blocks the thread while the word has this value.
extern void (*host_wait_while)(const volatile uint64_t* word, uint64_t value);
// Ends the run with a message: the program under test is wrong.
extern void (*host_fail)(const char* message);
