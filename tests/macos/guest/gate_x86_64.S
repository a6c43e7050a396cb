// The entry from a program into the model; processor.py describes the layout of the mailbox.

    .text
    .p2align 4

// The stub of an imported function jumps here with the function's number in r11. Everything that a
// caller may pass goes into the mailbox; the hook on gate_point handles the call.
    .globl _gate
_gate:
    movq %rdi, _mailbox(%rip)
    movq %rsi, _mailbox+8(%rip)
    movq %rdx, _mailbox+16(%rip)
    movq %rcx, _mailbox+24(%rip)
    movq %r8, _mailbox+32(%rip)
    movq %r9, _mailbox+40(%rip)
    movq %r11, _mailbox+64(%rip)
    leaq 8(%rsp), %r11
    movq %r11, _mailbox+72(%rip)
    movsd %xmm0, _mailbox+80(%rip)
    movsd %xmm1, _mailbox+88(%rip)
    movsd %xmm2, _mailbox+96(%rip)
    movsd %xmm3, _mailbox+104(%rip)
    movsd %xmm4, _mailbox+112(%rip)
    movsd %xmm5, _mailbox+120(%rip)
    movsd %xmm6, _mailbox+128(%rip)
    movsd %xmm7, _mailbox+136(%rip)
    .globl _gate_point
_gate_point:
    nop
    .globl _gate_resume
_gate_resume:
    cmpq $0, _mailbox+144(%rip)
    jne 1f
    movq _mailbox(%rip), %rax
    movsd _mailbox+80(%rip), %xmm0
    retq
1:  movq $0, _mailbox+144(%rip)   // a long double is returned on the x87 stack
    fldt _mailbox+160(%rip)
    retq

// The return address of functions that the model calls: function number 0.
    .globl _guest_return
_guest_return:
    movq %rax, _mailbox(%rip)
    movq $0, _mailbox+64(%rip)
    jmp _gate_point

// A thread-local variable's address for its descriptor {this function, offset of the image's block
// in a thread, offset of the variable in the block}. Callers expect all registers but rax to be
// preserved.
    .globl __tlv_bootstrap
__tlv_bootstrap:
    movq _current_thread(%rip), %rax
    addq 8(%rdi), %rax
    addq 16(%rdi), %rax
    retq

    .globl _mailbox
    .zerofill __DATA,__bss,_mailbox,192,4
