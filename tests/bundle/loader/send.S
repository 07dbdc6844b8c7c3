// objc_msgSend and its kin, over gcc's objc_msg_lookup, which finds a method and leaves the call to its
// caller. Every register that can carry an argument is kept meanwhile: six, eight vector registers (of
// whose upper halves nobody passes any), and %rax, in which a call with variable arguments has the
// number of these.

        .macro FUNCTION name
        .globl  \name
        .hidden \name
        .type   \name, @function
        .p2align 4
\name:
        .cfi_startproc
        .endm

        .macro END name
        .cfi_endproc
        .size   \name, . - \name
        .endm

        .macro SAVE
        pushq   %rbp
        .cfi_def_cfa_offset 16
        .cfi_offset %rbp, -16
        movq    %rsp, %rbp
        .cfi_def_cfa_register %rbp
        subq    $0xc0, %rsp
        movaps  %xmm0, 0x00(%rsp)
        movaps  %xmm1, 0x10(%rsp)
        movaps  %xmm2, 0x20(%rsp)
        movaps  %xmm3, 0x30(%rsp)
        movaps  %xmm4, 0x40(%rsp)
        movaps  %xmm5, 0x50(%rsp)
        movaps  %xmm6, 0x60(%rsp)
        movaps  %xmm7, 0x70(%rsp)
        movq    %rdi, 0x80(%rsp)
        movq    %rsi, 0x88(%rsp)
        movq    %rdx, 0x90(%rsp)
        movq    %rcx, 0x98(%rsp)
        movq    %r8, 0xa0(%rsp)
        movq    %r9, 0xa8(%rsp)
        movq    %rax, 0xb0(%rsp)
        .endm

// The method's code, which was returned in %rax, is in %r11 afterwards.
        .macro RESTORE
        movq    %rax, %r11
        movaps  0x00(%rsp), %xmm0
        movaps  0x10(%rsp), %xmm1
        movaps  0x20(%rsp), %xmm2
        movaps  0x30(%rsp), %xmm3
        movaps  0x40(%rsp), %xmm4
        movaps  0x50(%rsp), %xmm5
        movaps  0x60(%rsp), %xmm6
        movaps  0x70(%rsp), %xmm7
        movq    0x80(%rsp), %rdi
        movq    0x88(%rsp), %rsi
        movq    0x90(%rsp), %rdx
        movq    0x98(%rsp), %rcx
        movq    0xa0(%rsp), %r8
        movq    0xa8(%rsp), %r9
        movq    0xb0(%rsp), %rax
        leave
        .cfi_def_cfa %rsp, 8
        .cfi_restore %rbp
        .endm

        .text

// A message to nil returns zero in every register that can carry a result.
FUNCTION macho_objc_msgSend
        testq   %rdi, %rdi
        je      1f
        SAVE
        call    objc_msg_lookup@PLT
        RESTORE
        jmp     *%r11
1:      xorl    %eax, %eax
        xorl    %edx, %edx
        pxor    %xmm0, %xmm0
        pxor    %xmm1, %xmm1
        ret
END macho_objc_msgSend

// The place of the returned structure comes before the receiver; a message to nil leaves it as it is.
FUNCTION macho_objc_msgSend_stret
        testq   %rsi, %rsi
        je      1f
        SAVE
        movq    %rsi, %rdi
        movq    %rdx, %rsi
        call    objc_msg_lookup@PLT
        RESTORE
        jmp     *%r11
1:      movq    %rdi, %rax
        ret
END macho_objc_msgSend_stret

// Is given { receiver, class whose superclass is asked } in the receiver's place.
FUNCTION macho_objc_msgSendSuper2
        SAVE
        call    macho_lookup_super
        RESTORE
        movq    (%rdi), %rdi
        jmp     *%r11
END macho_objc_msgSendSuper2

        .section .note.GNU-stack, "", @progbits
