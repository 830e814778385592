// fibre_switch.S - the switch between stacks, the end of a fibre, and the exception guard.
//
// The frame that a suspended stack ends with, from its context upwards:
//
//     0x000  0, or 1 in a fresh frame: all from 0xB0 on then lies 8 bytes higher
//     0x008  xmm6 to xmm15
//     0x0A8  MXCSR, 0x0AC x87 control word
//     0x0B0  sub-system pointer, deallocation stack, stack limit, stack base
//     0x0D0  r12 r13 r14 r15 rdi rsi rbx rbp
//     0x110  where to go on
//     0x118  the caller's home area: the thread's exception list (not in a fresh frame)

	.intel_syntax noprefix
	.text

	.set	FRAME, 0x110
	.set	MXCSR, 0x0A8
	.set	X87, 0x0AC
	.set	SUBSYSTEM, 0x0B0
	.set	DEALLOCATION, 0x0B8
	.set	LIMIT, 0x0C0
	.set	BASE, 0x0C8
	.set	REGISTERS, 0x0D0
	.set	TARGET, 0x110
	.set	HANDLERS, 0x118

	.set	TEB_HANDLERS, 0x00
	.set	TEB_BASE, 0x08
	.set	TEB_LIMIT, 0x10
	.set	TEB_SUBSYSTEM, 0x18
	.set	TEB_DEALLOCATION, 0x1478

// void* switch_to_fiber(void** save /*rcx*/, void* target /*rdx*/, void* value /*r8*/, bool fp /*r9*/)
	.globl	switch_to_fiber
	.def	switch_to_fiber; .scl 2; .type 32; .endef
	.p2align 6
	.seh_proc switch_to_fiber
switch_to_fiber:
	sub	rsp, FRAME
	.seh_stackalloc FRAME
	mov	[rsp+REGISTERS+0x00], r12
	.seh_savereg r12, REGISTERS+0x00
	mov	[rsp+REGISTERS+0x08], r13
	.seh_savereg r13, REGISTERS+0x08
	mov	[rsp+REGISTERS+0x10], r14
	.seh_savereg r14, REGISTERS+0x10
	mov	[rsp+REGISTERS+0x18], r15
	.seh_savereg r15, REGISTERS+0x18
	mov	[rsp+REGISTERS+0x20], rdi
	.seh_savereg rdi, REGISTERS+0x20
	mov	[rsp+REGISTERS+0x28], rsi
	.seh_savereg rsi, REGISTERS+0x28
	mov	[rsp+REGISTERS+0x30], rbx
	.seh_savereg rbx, REGISTERS+0x30
	mov	[rsp+REGISTERS+0x38], rbp
	.seh_savereg rbp, REGISTERS+0x38
	.seh_endprologue

	mov	rax, gs:[TEB_BASE]
	mov	r10, gs:[TEB_LIMIT]
	mov	[rsp+BASE], rax
	mov	[rsp+LIMIT], r10
	mov	rax, gs:[TEB_DEALLOCATION]
	mov	r10, gs:[TEB_SUBSYSTEM]
	mov	[rsp+DEALLOCATION], rax
	mov	[rsp+SUBSYSTEM], r10
	mov	rax, gs:[TEB_HANDLERS]
	mov	qword ptr [rsp], 0
	mov	[rsp+HANDLERS], rax
	mov	[rcx], rsp

	test	r9b, r9b
	jz	.Lswitched_fp
	stmxcsr	[rsp+MXCSR]
	fnstcw	[rsp+X87]
	movaps	[rsp+0x08], xmm6
	movaps	[rsp+0x18], xmm7
	movaps	[rsp+0x28], xmm8
	movaps	[rsp+0x38], xmm9
	movaps	[rsp+0x48], xmm10
	movaps	[rsp+0x58], xmm11
	movaps	[rsp+0x68], xmm12
	movaps	[rsp+0x78], xmm13
	movaps	[rsp+0x88], xmm14
	movaps	[rsp+0x98], xmm15

	// Loading a control word costs up to ten times the rest: only where it differs. The exception
	// flags in the lowest 6 bits are volatile over any call.
	mov	eax, [rdx+MXCSR]
	movzx	r10d, word ptr [rdx+X87]
	xor	eax, [rsp+MXCSR]
	test	eax, 0xFFC0
	jnz	.Lload_mxcsr
.Lloaded_mxcsr:
	cmp	r10w, [rsp+X87]
	jne	.Lload_x87
.Lloaded_x87:
	movaps	xmm6, [rdx+0x08]
	movaps	xmm7, [rdx+0x18]
	movaps	xmm8, [rdx+0x28]
	movaps	xmm9, [rdx+0x38]
	movaps	xmm10, [rdx+0x48]
	movaps	xmm11, [rdx+0x58]
	movaps	xmm12, [rdx+0x68]
	movaps	xmm13, [rdx+0x78]
	movaps	xmm14, [rdx+0x88]
	movaps	xmm15, [rdx+0x98]
.Lswitched_fp:

	// A fresh frame has 8 bytes more, and an exception list that is empty: all ones.
	mov	rcx, [rdx]
	lea	rsp, [rdx+rcx*8]
	neg	rcx
	or	rcx, [rsp+HANDLERS]
	mov	rax, [rsp+BASE]
	mov	r10, [rsp+LIMIT]
	mov	gs:[TEB_HANDLERS], rcx
	mov	gs:[TEB_BASE], rax
	mov	gs:[TEB_LIMIT], r10
	mov	rax, [rsp+DEALLOCATION]
	mov	r10, [rsp+SUBSYSTEM]
	mov	gs:[TEB_DEALLOCATION], rax
	mov	gs:[TEB_SUBSYSTEM], r10
	mov	r12, [rsp+REGISTERS+0x00]
	mov	r13, [rsp+REGISTERS+0x08]
	mov	r14, [rsp+REGISTERS+0x10]
	mov	r15, [rsp+REGISTERS+0x18]
	mov	rdi, [rsp+REGISTERS+0x20]
	mov	rsi, [rsp+REGISTERS+0x28]
	mov	rbx, [rsp+REGISTERS+0x30]
	mov	rbp, [rsp+REGISTERS+0x38]

	// Through a register: a return would be predicted to the wrong stack's caller.
	mov	r10, [rsp+TARGET]
	add	rsp, FRAME+8
	mov	rax, r8
	mov	rcx, r8
	jmp	r10

.Lload_mxcsr:
	ldmxcsr	[rdx+MXCSR]
	jmp	.Lloaded_mxcsr
.Lload_x87:
	fldcw	[rdx+X87]
	jmp	.Lloaded_x87
	.seh_endproc

// Where the entry of a fibre returns to: ends the process. As the lowest frame of each fibre it also
// hands exceptions that nobody on the fibre takes to the process's filter.
	.globl	qx_fibre_returned
	.def	qx_fibre_returned; .scl 2; .type 32; .endef
	.p2align 4
	.seh_proc qx_fibre_lowest_frame
qx_fibre_lowest_frame:
	nop
	.seh_stackalloc 0x18
	.seh_endprologue
	.seh_handler qx_fibre_unhandled, @except
qx_fibre_returned:
	sub	rsp, 0x20
	xor	ecx, ecx
	call	_exit
	ud2
	.seh_endproc

// int qx_guarded_call(void (*function)(void*) /*rcx*/, void* argument /*rdx*/, filter /*r8*/)
	.globl	qx_guarded_call
	.def	qx_guarded_call; .scl 2; .type 32; .endef
	.p2align 4
	.seh_proc qx_guarded_call
qx_guarded_call:
	sub	rsp, 0x38
	.seh_stackalloc 0x38
	.seh_endprologue
	.seh_handler qx_guard_handler, @except, @unwind
	mov	[rsp+0x20], r8		// where the handler looks for the filter
	mov	rax, rcx
	mov	rcx, rdx
	call	rax
	xor	eax, eax
	nop
.Lguard_out:
	add	rsp, 0x38
	ret
// Unwinding lands here with 1, or with the thrown object's header, which has to be disposed of.
	.globl	qx_guard_landing
qx_guard_landing:
	cmp	rax, 1
	je	.Lguard_out
	mov	rcx, rax
	call	qx_guard_dispose
	mov	eax, 1
	jmp	.Lguard_out
	.seh_endproc

	.section .drectve
	.ascii	" -export:\"switch_to_fiber\""
