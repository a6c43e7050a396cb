// What the parts of the guest library share. The library holds the functions of the system that
// programs call too often for a call into the model: a call there costs as much as thousands of
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

// Called by every function here that programs use in loops: every so often it lets other threads
// run and signals be handled.
void tick(void);

// Functions of the model; it sets the pointers when it loads this library.
extern void (*host_tick)(void);
// Blocks the thread while the word has this value.
extern void (*host_wait_while)(const volatile uint64_t* word, uint64_t value);
// Ends the run with a message: the program under test is wrong.
extern void (*host_fail)(const char* message);
