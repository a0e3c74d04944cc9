#include "host/linux/kernel_types.h"

#include <bit>
#include <utility>

#include "host/linux/procfs.h"

namespace host::linux_machine {

// How many members without a name are within each other, at most.
static constexpr int kDeepest = 8;

// What an instruction can add to a pointer.
static constexpr uint32_t kFarthest = INT16_MAX;

uint32_t KernelTypes::find(const char *name, uint32_t kind) const {
  if (types_ == nullptr) return 0;
  const int32_t id = btf__find_by_name_kind(types_.get(), name, kind);
  return id > 0 ? static_cast<uint32_t>(id) : 0;
}

// Where the last byte comes first, the beginning of a wider number is no number.
static bool isWideEnough(size_t width, size_t wanted) {
  return std::endian::native == std::endian::little ? width >= wanted : width == wanted;
}

// What a type is, without its qualifiers and other names; 0 for void.
uint32_t KernelTypes::plain(uint32_t type) const {
  const int plain = btf__resolve_type(types_.get(), type);
  return plain > 0 ? static_cast<uint32_t>(plain) : 0;
}

// Members of a member without a name are the structure's own.
bool KernelTypes::findMember(uint32_t structure, std::string_view name, int depth,
                             Member &member) const {
  const btf_type *type = describe(structure);
  if (!btf_is_composite(type)) return false;
  const btf_member *members = btf_members(type);
  for (uint32_t i = 0; i < btf_vlen(type); i++) {
    const uint32_t offset = btf_member_bit_offset(type, i) / 8;
    const char *text = btf__name_by_offset(types_.get(), members[i].name_off);
    const std::string_view each = text != nullptr ? text : "?";
    if (each == name) {
      if (btf_member_bitfield_size(type, i) != 0) return false;
      member = {plain(members[i].type), offset};
      return true;
    }
    if (each.empty() && depth > 0 && findMember(plain(members[i].type), name, depth - 1, member)) {
      member.offset += offset;
      return true;
    }
  }
  return false;
}

bool KernelTypes::findElement(uint32_t number, Member &member) const {
  const btf_type *type = describe(member.type);
  if (!btf_is_array(type)) return false;
  // One without a length is as long as need be.
  const uint32_t length = btf_array(type)->nelems;
  const int64_t size = btf__resolve_size(types_.get(), btf_array(type)->type);
  if (size < 0 || (length != 0 && number >= length)) return false;
  member = {plain(btf_array(type)->type), member.offset + number * static_cast<uint32_t>(size)};
  return true;
}

bool KernelTypes::follow(const char *structure, std::string_view path, size_t size,
                         std::vector<uint32_t> &offsets) const {
  uint32_t type = find(structure, BTF_KIND_STRUCT);
  uint32_t base = 0;
  offsets.clear();
  for (;;) {
    const std::string_view name = path.substr(0, path.find_first_of(".-["));
    Member member{};
    if (type == 0 || !findMember(type, name, kDeepest, member)) return false;
    path.remove_prefix(name.size());
    if (path.starts_with('[')) {
      const size_t end = path.find(']');
      uint32_t number = 0;
      if (!parseNumber(path.substr(1, end - 1), number) || !findElement(number, member)) {
        return false;
      }
      path.remove_prefix(end + 1);
    }
    base += member.offset;
    if (base > kFarthest) return false;
    const btf_type *found = describe(member.type);
    if (path.empty()) {
      offsets.push_back(base);
      return btf_is_ptr(found)
                 ? size == sizeof(void *)
                 : (btf_is_int(found) || btf_is_any_enum(found)) && isWideEnough(found->size, size);
    }
    if (path.starts_with("->")) {
      if (!btf_is_ptr(found)) return false;
      offsets.push_back(std::exchange(base, 0));
      type = plain(found->type);
      path.remove_prefix(2);
    } else {
      type = member.type;
      path.remove_prefix(1);
    }
  }
}

}  // namespace host::linux_machine
