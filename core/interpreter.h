#pragma once

// What an instruction does.

// Executes the one instruction at machine.pc: fetches four words, reads the operands and writes the result.
// The order of the reads is part of what an instruction is, since reading a device may change it. Throws
// tovik_error on a fault, with machine.pc then somewhere past the start of the instruction and earlier writes
// done.
void execute_instruction();
