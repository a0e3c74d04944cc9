// The ways to members of the kernel's structures, in made-up BTF.
#include "host/linux/kernel_types.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace host::linux_machine {
namespace {

using testing::ElementsAre;

constexpr uint32_t kFlexible = 0;

// Structures whose members each follow the one before, with the sizes of a 64-bit kernel.
class MadeUpTypes {
 public:
  MadeUpTypes() {
    integer_ = btf__add_int(types_, "int", 4, BTF_INT_SIGNED);
    wide_ = btf__add_int(types_, "long", 8, BTF_INT_SIGNED);

    const int counter = structure("counter", 8);
    member("counter", wide_, 0);
    const int atomic = btf__add_typedef(types_, "atomic_long_t", counter);
    const int counts = btf__add_array(types_, integer_, atomic, 4);
    const int summed = structure("percpu_counter", 40);
    member("lock", wide_, 0);
    member("count", wide_, 8);
    const int perCPU = btf__add_array(types_, integer_, summed, 4);
    const int old = structure("mm_rss_stat", 32);
    member("count", counts, 0);

    const int upid = structure("upid", 16);
    member("nr", integer_, 0);
    const int upids = btf__add_array(types_, integer_, upid, kFlexible);
    const int pid = structure("pid", 96);
    member("numbers", upids, 96);
    const int pidPointer = btf__add_ptr(types_, pid);
    const int pids = btf__add_array(types_, integer_, pidPointer, 4);
    const int signal = structure("signal_struct", 64);
    member("pids", pids, 16);
    const int constant = btf__add_const(types_, signal);
    const int signalPointer = btf__add_ptr(types_, constant);

    structure("before", 64);
    member("rss_stat", old, 24);
    structure("after", 256);
    member("rss_stat", perCPU, 24);

    btf__add_union(types_, "", 8);
    const int choice = static_cast<int>(btf__type_cnt(types_)) - 1;
    btf__add_field(types_, "left", wide_, 0, 0);
    btf__add_field(types_, "right", integer_, 0, 0);
    structure("", 16);
    const int nameless = static_cast<int>(btf__type_cnt(types_)) - 1;
    member("one", integer_, 0);
    member("", choice, 8);

    structure("task", 64000);
    member("state", integer_, 0);
    member("", nameless, 8);
    member("signal", signalPointer, 32);
    btf__add_field(types_, "flag", integer_, 40 * 8, 1);
    member("far", integer_, 40000);

    const int prototype = btf__add_func_proto(types_, 0);
    function_ = btf__add_func(types_, "walk", BTF_FUNC_GLOBAL, prototype);
  }

  btf *types() { return types_; }
  int function() const { return function_; }

 private:
  int structure(const char *name, uint32_t size) { return btf__add_struct(types_, name, size); }
  void member(const char *name, int type, uint32_t offset) {
    EXPECT_EQ(btf__add_field(types_, name, type, offset * 8, 0), 0) << name;
  }

  btf *types_ = btf__new_empty();
  int integer_;
  int wide_;
  int function_;
};

class LinuxKernelTypesTest : public testing::Test {
 protected:
  std::vector<uint32_t> way(const char *structure, const char *path, size_t size) {
    std::vector<uint32_t> offsets;
    return types_.follow(structure, path, size, offsets) ? offsets : std::vector<uint32_t>();
  }

  MadeUpTypes madeUp_;
  KernelTypes types_{madeUp_.types()};
};

TEST_F(LinuxKernelTypesTest, MembersAreWhereTheyAre) {
  EXPECT_THAT(way("task", "state", 4), ElementsAre(0));
  EXPECT_THAT(way("task", "signal", 8), ElementsAre(32));
  EXPECT_THAT(way("task", "one", 4), ElementsAre(8)) << "in a structure without a name";
  EXPECT_THAT(way("task", "left", 8), ElementsAre(16)) << "in a union within that";
  EXPECT_THAT(way("task", "right", 4), ElementsAre(16));
  EXPECT_THAT(way("task", "left", 4), ElementsAre(16)) << "the low half";
  EXPECT_THAT(way("task", "signal->pids[2]->numbers[0].nr", 4), ElementsAre(32, 32, 96));
  EXPECT_THAT(way("task", "signal->pids[3]->numbers[1].nr", 4), ElementsAre(32, 40, 112));
}

TEST_F(LinuxKernelTypesTest, CountsOfPagesOfTwoKernels) {
  EXPECT_THAT(way("before", "rss_stat.count[3].counter", 8), ElementsAre(48));
  EXPECT_THAT(way("after", "rss_stat[3].count", 8), ElementsAre(152));
  EXPECT_TRUE(way("before", "rss_stat[3].count", 8).empty());
  EXPECT_TRUE(way("after", "rss_stat.count[3].counter", 8).empty());
}

TEST_F(LinuxKernelTypesTest, WhatIsOtherwiseIsNotThere) {
  struct {
    const char *structure;
    const char *path;
    size_t size;
  } const cases[] = {
      {"nothing", "state", 4},
      {"task", "none", 4},
      {"task", "state", 8},
      {"task", "state.more", 4},
      {"task", "state->more", 4},
      {"task", "state[0]", 4},
      {"task", "signal.pids[0]", 8},
      {"task", "signal->pids[4]", 8},
      {"task", "signal->pids", 8},
      {"task", "flag", 4},
      {"task", "far", 4},
  };
  for (const auto &one : cases) {
    EXPECT_TRUE(way(one.structure, one.path, one.size).empty()) << one.path;
  }
}

TEST_F(LinuxKernelTypesTest, FunctionsAreFoundByName) {
  EXPECT_EQ(types_.findFunction("walk"), static_cast<uint32_t>(madeUp_.function()));
  EXPECT_EQ(types_.findFunction("task"), 0u);
}

// Such can't be laid out, but it can be said.
TEST(LinuxKernelTypes, AStructureWithinItselfEnds) {
  btf *types = btf__new_empty();
  ASSERT_EQ(btf__add_struct(types, "task", 8), 1);
  ASSERT_EQ(btf__add_field(types, "", 1, 0, 0), 0);
  std::vector<uint32_t> offsets;
  EXPECT_FALSE(KernelTypes(types).follow("task", "state", 4, offsets));
}

TEST(LinuxKernelTypes, AKernelThatSaysNothingHasNothing) {
  const KernelTypes types(nullptr);
  std::vector<uint32_t> offsets;
  EXPECT_FALSE(types.follow("task_struct", "pid", 4, offsets));
  EXPECT_EQ(types.findFunction("bpf_iter_task"), 0u);
}

}  // namespace
}  // namespace host::linux_machine
