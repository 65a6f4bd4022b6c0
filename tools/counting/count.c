// A plugin of QEMU that counts the instructions of marked stretches of an emulated ARM64 program. Loaded by
// the emulator:
//
//   qemu-aarch64 -plugin count.so,out=FILE PROGRAM
//
// The program marks with hints, which a processor ignores (tests/rig/marks.h has them in C++):
//
//   begin        from here on instructions are counted
//   end          up to here
//   zero, one    sends a bit to this plugin, the lowest bit of a byte first
//   image        the 16 bytes sent are the addresses of the first and of the last byte of an image: from now
//                on its instructions are the "own" ones
//   write        writes a line to FILE: the own instructions and all instructions since the last line, and
//                the text sent
//
// Every thread of the process is counted, so nothing else may run in it between "begin" and "end". An
// instruction that causes a page fault which the program itself handles is counted each time that it is
// executed.
#include <inttypes.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

// ---- the interface of the emulator, version 1

typedef uint64_t PluginId;
typedef struct Info Info;
typedef struct Block Block;
typedef struct Instruction Instruction;
enum { kNoRegisters = 0, kAdd64 = 0 };

int qemu_plugin_install(PluginId id, const Info* info, int count, char** words);
void qemu_plugin_register_vcpu_tb_trans_cb(PluginId id, void (*translated)(PluginId id, Block* block));
size_t qemu_plugin_tb_n_insns(const Block* block);
Instruction* qemu_plugin_tb_get_insn(const Block* block, size_t index);
uint64_t qemu_plugin_insn_vaddr(const Instruction* instruction);
const void* qemu_plugin_insn_data(const Instruction* instruction);
void qemu_plugin_register_vcpu_insn_exec_cb(Instruction* instruction,
                                            void (*executed)(unsigned cpu, void* data), int registers,
                                            void* data);
void qemu_plugin_register_vcpu_insn_exec_inline(Instruction* instruction, int operation, void* target,
                                                uint64_t operand);

__attribute__((visibility("default"))) int qemu_plugin_version = 1;

// ---- the counters

// Windows places images at multiples of 64 KiB, so no such piece of memory belongs to two of them.
enum { kPieceBits = 16, kPieces = 1 << 16 };

typedef struct Piece {
  uint64_t number;
  uint64_t count;
} Piece;

// A hash table; a piece with the number 0 is free.
static Piece pieces[kPieces];
static unsigned used;
static FILE* out;
static uint64_t first, last;
static uint64_t ownBefore, allBefore, own, all;

static void Die(const char* text) {
  fprintf(stderr, "count.so: %s\n", text);
  exit(1);
}

static uint64_t* CounterOf(uint64_t address) {
  const uint64_t number = address >> kPieceBits;
  for (uint64_t i = number * 0x9E3779B97F4A7C15u >> 48;; i = (i + 1) % kPieces) {
    if (pieces[i].number == number) return &pieces[i].count;
    if (pieces[i].number != 0) continue;
    if (++used > kPieces / 2) Die("the program has too much code");
    pieces[i].number = number;
    return &pieces[i].count;
  }
}

static void Sums(uint64_t* ownSum, uint64_t* allSum) {
  *ownSum = *allSum = 0;
  for (unsigned i = 0; i < kPieces; ++i) {
    *allSum += pieces[i].count;
    if (pieces[i].number >= first >> kPieceBits && pieces[i].number <= last >> kPieceBits)
      *ownSum += pieces[i].count;
  }
}

// ---- the marks

static void Begin(unsigned cpu, void* data) {
  (void)cpu, (void)data;
  Sums(&ownBefore, &allBefore);
}

static void End(unsigned cpu, void* data) {
  uint64_t ownNow, allNow;
  (void)cpu, (void)data;
  Sums(&ownNow, &allNow);
  own += ownNow - ownBefore;
  all += allNow - allBefore;
}

// What was sent since the last mark that took it.
static unsigned char sent[1024];
static unsigned bits;

static void Send(unsigned cpu, void* bit) {
  (void)cpu;
  // One byte stays free for a terminator.
  if (bits / 8 == sizeof sent - 1) Die("the program has sent too much");
  if (bits % 8 == 0) sent[bits / 8] = 0;
  sent[bits / 8] |= (unsigned char)((bit ? 1 : 0) << bits % 8);
  ++bits;
}

static void SetImage(unsigned cpu, void* data) {
  (void)cpu, (void)data;
  if (bits != 2 * 64) Die("an image has two addresses");
  memcpy(&first, sent, sizeof first);
  memcpy(&last, sent + sizeof first, sizeof last);
  bits = 0;
}

static void Write(unsigned cpu, void* data) {
  (void)cpu, (void)data;
  sent[bits / 8] = 0;
  fprintf(out, "%" PRIu64 " %" PRIu64 " %s\n", own, all, (const char*)sent);
  if (fflush(out) != 0) Die("the counts cannot be written");
  own = all = bits = 0;
}

// The marks, by the numbers of their hints from kFirstHint on.
enum { kFirstHint = 112 };
typedef struct Mark {
  void (*executed)(unsigned cpu, void* data);
  void* data;
} Mark;
static const Mark marks[] = {
    {Begin, NULL},     // begin
    {End, NULL},       // end
    {Send, NULL},      // zero
    {Send, sent},      // one
    {SetImage, NULL},  // image
    {Write, NULL},     // write
};

// Returns the mark that an instruction is, or null.
static const Mark* MarkOf(const Instruction* instruction) {
  uint32_t code;
  memcpy(&code, qemu_plugin_insn_data(instruction), sizeof code);
  const unsigned mark = (code >> 5 & 127) - kFirstHint;
  return (code & 0xFFFFF01F) == 0xD503201F && mark < sizeof marks / sizeof *marks ? &marks[mark] : NULL;
}

static void Translated(PluginId id, Block* block) {
  (void)id;
  for (size_t i = 0; i < qemu_plugin_tb_n_insns(block); ++i) {
    Instruction* const instruction = qemu_plugin_tb_get_insn(block, i);
    const Mark* const mark = MarkOf(instruction);
    if (mark) {
      qemu_plugin_register_vcpu_insn_exec_cb(instruction, mark->executed, kNoRegisters, mark->data);
    } else {
      qemu_plugin_register_vcpu_insn_exec_inline(instruction, kAdd64,
                                                 CounterOf(qemu_plugin_insn_vaddr(instruction)), 1);
    }
  }
}

__attribute__((visibility("default"))) int qemu_plugin_install(PluginId id, const Info* info, int count,
                                                               char** words) {
  (void)info;
  if (count != 1 || strncmp(words[0], "out=", 4) != 0) {
    fprintf(stderr, "count.so: needs out=FILE\n");
    return 1;
  }
  out = fopen(words[0] + 4, "w");
  if (!out) {
    perror(words[0] + 4);
    return 1;
  }
  qemu_plugin_register_vcpu_tb_trans_cb(id, Translated);
  return 0;
}
