// SPDX-License-Identifier: BSD-2-Clause
// Plugin for qemu's user mode emulation that counts the instructions of a program and prints
// "instructions N" on standard error at its end. bench/check-instructions compiles and loads it.
// Instructions that a condition suppresses count as well.
#include <inttypes.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

// What is used of qemu's plugin interface, version 1, whose header Debian does not package.
typedef uint64_t qemu_plugin_id_t;
struct qemu_plugin_tb;
enum qemu_plugin_op { QEMU_PLUGIN_INLINE_ADD_U64 };
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb* block);
void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t id,
                                           void (*on_translation)(qemu_plugin_id_t id,
                                                                  struct qemu_plugin_tb* block));
void qemu_plugin_register_vcpu_tb_exec_inline(struct qemu_plugin_tb* block, enum qemu_plugin_op op,
                                              void* counter, uint64_t value);
void qemu_plugin_register_atexit_cb(qemu_plugin_id_t id,
                                    void (*at_exit)(qemu_plugin_id_t id, void* data), void* data);

int qemu_plugin_version = 1;
static uint64_t g_instructions;

static void on_translation(qemu_plugin_id_t id, struct qemu_plugin_tb* block) {
    (void)id;
    qemu_plugin_register_vcpu_tb_exec_inline(block, QEMU_PLUGIN_INLINE_ADD_U64, &g_instructions,
                                             qemu_plugin_tb_n_insns(block));
}

static void at_exit(qemu_plugin_id_t id, void* data) {
    (void)id;
    (void)data;
    fprintf(stderr, "instructions %" PRIu64 "\n", g_instructions);
}

int qemu_plugin_install(qemu_plugin_id_t id, const void* info, int argc, char** argv) {
    (void)info;
    (void)argc;
    (void)argv;
    qemu_plugin_register_vcpu_tb_trans_cb(id, on_translation);
    qemu_plugin_register_atexit_cb(id, at_exit, NULL);
    return 0;
}
