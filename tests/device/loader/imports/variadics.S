// A caller on the device leaves all that follows the named arguments on the stack. Each entry point
// hands on where, in the register behind those of the named arguments.

.macro variadic name, register
  .globl device_\name
  .type device_\name, %function
device_\name:
  mov \register, sp
  b on_\name
  .size device_\name, . - device_\name
.endm

  .text
variadic printf, x1
variadic fprintf, x2
variadic snprintf, x3
variadic open, x2
variadic fcntl, x2
variadic ioctl, x2
variadic syscall, x1
variadic sandbox_check, x3

  .section .note.GNU-stack, "", %progbits
