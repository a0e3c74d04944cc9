// How the kernel lays out its own structures, as its BTF says.
#pragma once

#include <bpf/btf.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

namespace host::linux_machine {

class KernelTypes {
 public:
  // Takes over `types`, which may be null: then nothing is found.
  explicit KernelTypes(btf *types) : types_(types) {}

  // The ID of a function; 0 for none.
  uint32_t findFunction(const char *name) const { return find(name, BTF_KIND_FUNC); }
  // The way to a member, or member of a member, of a structure: `path` is what C would have behind
  // "p->" for a pointer to `structure`, such as "signal->pids[2]->level". Fills `offsets` with
  // where one pointer after the other is found, each from where the one before it leads, and last
  // what the path ends with. False if there is none, or it is no number or pointer of at least
  // `size` bytes, of which the low ones are wanted.
  bool follow(const char *structure, std::string_view path, size_t size,
              std::vector<uint32_t> &offsets) const;

 private:
  struct Member {
    uint32_t type;
    uint32_t offset;
  };
  struct Free {
    void operator()(btf *types) const { btf__free(types); }
  };

  uint32_t find(const char *name, uint32_t kind) const;
  uint32_t plain(uint32_t type) const;
  const btf_type *describe(uint32_t type) const { return btf__type_by_id(types_.get(), type); }
  bool findMember(uint32_t structure, std::string_view name, int depth, Member &member) const;
  bool findElement(uint32_t number, Member &member) const;

  std::unique_ptr<btf, Free> types_;
};

}  // namespace host::linux_machine
