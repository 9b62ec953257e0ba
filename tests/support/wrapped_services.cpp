// Trees, names and the reply codec are the real ones; the linker leads every call to them through
// here, where it is recorded and may be made to fail.
#include <cstdarg>

#include "imc.h"
#include "imca.h"
#include "lum.h"
#include "node_ids.h"
#include "record.h"
#include "script.h"
#include "tree_comparators.h"
#include "wavl.h"

namespace support {

node_id_rules &node_ids = *new node_id_rules;
wavl_comparator tree_comparators[2];

}  // namespace support

using namespace support;

namespace {

// The key that a node, or a key node, has in an index of the ports database.
std::string key_of(const void *node, uint32_t index) {
  if (node == nullptr) return "null";
  const auto *port = static_cast<const lum_port_node_info *>(node);
  return shown(hex{index == 0 ? port->rsip : port->port_handle});
}

}  // namespace

extern "C" {

cerrno __real_wavl_init(wavl_tree *tree, uint32_t indices, uint32_t link_offset, ...);
int __real_wavl_running(const wavl_tree *tree);
int __real_wavl_insert_thread(wavl_tree *tree, uint32_t index, void *node);
int __real_wavl_delete_thread(wavl_tree *tree, uint32_t index, void *node);
int __real_wavl_delete(wavl_tree *tree, void *node);
void *__real_wavl_search(wavl_tree *tree, const void *key_node, uint32_t index);
uint32_t __real_wavl_walk(wavl_tree *tree, uint32_t index, wavl_callback callback, void *context);
void *__real_wavl_get_first(wavl_tree *tree, uint32_t index);
void *__real_wavl_get_next(wavl_tree *tree, const void *node, uint32_t index);
cerrno __real_imc_ifname_parse(const char *ifname, uint32_t flags, imc_ifname_info *info);
cerrno __real_nodeid_extract_slot_fields(uint32_t rack_field, uint32_t slot_field,
                                         uint32_t *rack_out, uint32_t *slot_out);
void __real_nodeid_inst_to_SPAid(uint32_t instance_field, uint32_t *instance_out);
cerrno __real_wiredef_icpe_ext_intf_create_reply_data_decode_ext(
    const uint8_t *data, uint32_t size, wiredef_icpe_ext_intf_create_reply_data *decoded,
    const wiredef_allocator *allocator);
void __real_wiredef_icpe_ext_intf_create_reply_data_free_ext(
    wiredef_icpe_ext_intf_create_reply_data *decoded, const wiredef_allocator *allocator);

cerrno __wrap_wavl_init(wavl_tree *tree, uint32_t indices, uint32_t link_offset, ...) {
  note("wavl_init", indices, link_offset);
  if (const auto code = script.verdict("wavl_init")) return *code;
  va_list arguments;
  va_start(arguments, link_offset);
  for (uint32_t i = 0; i < 2 && i < indices; ++i) {
    tree_comparators[i] = va_arg(arguments, wavl_comparator);
  }
  va_end(arguments);
  return __real_wavl_init(tree, indices, link_offset, tree_comparators[0], tree_comparators[1]);
}

int __wrap_wavl_running(const wavl_tree *tree) {
  note("wavl_running");
  return script.verdict("wavl_running") ? 0 : __real_wavl_running(tree);
}

int __wrap_wavl_insert_thread(wavl_tree *tree, uint32_t index, void *node) {
  record_call("wavl_insert_thread", {shown(index), key_of(node, index)});
  if (script.verdict("wavl_insert_thread")) return 0;
  return __real_wavl_insert_thread(tree, index, node);
}

int __wrap_wavl_delete_thread(wavl_tree *tree, uint32_t index, void *node) {
  record_call("wavl_delete_thread", {shown(index), key_of(node, index)});
  if (script.verdict("wavl_delete_thread")) return 0;
  return __real_wavl_delete_thread(tree, index, node);
}

int __wrap_wavl_delete(wavl_tree *tree, void *node) {
  record_call("wavl_delete", {key_of(node, 0)});
  if (script.verdict("wavl_delete")) return 0;
  return __real_wavl_delete(tree, node);
}

void *__wrap_wavl_search(wavl_tree *tree, const void *key_node, uint32_t index) {
  record_call("wavl_search", {key_of(key_node, index), shown(index)});
  if (script.verdict("wavl_search")) return nullptr;
  return __real_wavl_search(tree, key_node, index);
}

uint32_t __wrap_wavl_walk(wavl_tree *tree, uint32_t index, wavl_callback callback, void *context) {
  note("wavl_walk", index);
  return __real_wavl_walk(tree, index, callback, context);
}

void *__wrap_wavl_get_first(wavl_tree *tree, uint32_t index) {
  note("wavl_get_first", index);
  return __real_wavl_get_first(tree, index);
}

void *__wrap_wavl_get_next(wavl_tree *tree, const void *node, uint32_t index) {
  record_call("wavl_get_next", {key_of(node, index), shown(index)});
  return __real_wavl_get_next(tree, node, index);
}

cerrno __wrap_imc_ifname_parse(const char *ifname, uint32_t flags, imc_ifname_info *info) {
  note("imc_ifname_parse", ifname, flags);
  if (const auto code = script.verdict("imc_ifname_parse")) return *code;
  return __real_imc_ifname_parse(ifname, flags, info);
}

cerrno __wrap_nodeid_extract_slot_fields(uint32_t rack_field, uint32_t slot_field,
                                         uint32_t *rack_out, uint32_t *slot_out) {
  note("nodeid_extract_slot_fields", rack_field, slot_field);
  if (const auto code = script.verdict("nodeid_extract_slot_fields")) return *code;
  const cerrno rc = __real_nodeid_extract_slot_fields(rack_field, slot_field, rack_out, slot_out);
  *rack_out += node_ids.rack_bias;
  *slot_out += node_ids.slot_bias;
  return rc;
}

void __wrap_nodeid_inst_to_SPAid(uint32_t instance_field, uint32_t *instance_out) {
  note("nodeid_inst_to_SPAid", instance_field);
  __real_nodeid_inst_to_SPAid(instance_field, instance_out);
  *instance_out += node_ids.instance_bias;
}

cerrno __wrap_wiredef_icpe_ext_intf_create_reply_data_decode_ext(
    const uint8_t *data, uint32_t size, wiredef_icpe_ext_intf_create_reply_data *decoded,
    const wiredef_allocator *allocator) {
  note("create_reply_decode", size);
  if (const auto code = script.verdict("create_reply_decode")) return *code;
  return __real_wiredef_icpe_ext_intf_create_reply_data_decode_ext(data, size, decoded, allocator);
}

void __wrap_wiredef_icpe_ext_intf_create_reply_data_free_ext(
    wiredef_icpe_ext_intf_create_reply_data *decoded, const wiredef_allocator *allocator) {
  note("create_reply_free");
  __real_wiredef_icpe_ext_intf_create_reply_data_free_ext(decoded, allocator);
}

}  // extern "C"
