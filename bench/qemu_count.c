/* A plug-in for QEMU: the instructions that a program ran, on standard error at its end. QEMU's
 * packages ship no header for plug-ins; these are the declarations of its documented interface. */
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

typedef uint64_t qemu_plugin_id_t;
struct qemu_plugin_tb;
void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t id, void (*)(qemu_plugin_id_t, struct qemu_plugin_tb*));
void qemu_plugin_register_vcpu_tb_exec_cb(struct qemu_plugin_tb* block, void (*)(unsigned, void*), int flags,
                                          void* data);
void qemu_plugin_register_atexit_cb(qemu_plugin_id_t id, void (*)(qemu_plugin_id_t, void*), void* data);
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb* block);

int qemu_plugin_version = PLUGIN_VERSION;

static uint64_t count;

static void executed(unsigned cpu, void* instructions) {
  (void)cpu;
  count += (uintptr_t)instructions;
}
static void translated(qemu_plugin_id_t id, struct qemu_plugin_tb* block) {
  (void)id;
  qemu_plugin_register_vcpu_tb_exec_cb(block, executed, 0, (void*)qemu_plugin_tb_n_insns(block));
}
static void ended(qemu_plugin_id_t id, void* data) {
  (void)id;
  (void)data;
  fprintf(stderr, "instructions %llu\n", (unsigned long long)count);
}

int qemu_plugin_install(qemu_plugin_id_t id, const void* info, int argc, char** argv) {
  (void)info;
  (void)argc;
  (void)argv;
  qemu_plugin_register_vcpu_tb_trans_cb(id, translated);
  qemu_plugin_register_atexit_cb(id, ended, 0);
  return 0;
}
