// The entry from a program into the model; processor.py describes the layout of the mailbox.

    .text
    .p2align 2

// The stub of an imported function jumps here with the function's number in w16. Everything that a
// caller may pass goes into the mailbox; the hook on gate_point handles the call.
    .globl _gate
_gate:
    adrp x17, _mailbox@PAGE
    add x17, x17, _mailbox@PAGEOFF
    stp x0, x1, [x17, #0]
    stp x2, x3, [x17, #16]
    stp x4, x5, [x17, #32]
    stp x6, x7, [x17, #48]
    str x16, [x17, #64]
    mov x16, sp
    str x16, [x17, #72]
    stp d0, d1, [x17, #80]
    .globl _gate_point
_gate_point:
    nop
    .globl _gate_resume
_gate_resume:
    ldr x0, [x17, #0]
    ldr d0, [x17, #80]
    ret

// The return address of functions that the model calls: function number 0.
    .globl _guest_return
_guest_return:
    mov w16, #0
    b _gate

// A thread-local variable's address for its descriptor {this function, offset of the image's block
// in a thread, offset of the variable in the block}. Callers expect all registers but x0, x16 and
// x17 to be preserved.
    .globl __tlv_bootstrap
__tlv_bootstrap:
    adrp x16, _current_thread@PAGE
    ldr x16, [x16, _current_thread@PAGEOFF]
    ldr x17, [x0, #8]
    add x16, x16, x17
    ldr x17, [x0, #16]
    add x0, x16, x17
    ret

    .globl _mailbox
    .zerofill __DATA,__bss,_mailbox,192,4
