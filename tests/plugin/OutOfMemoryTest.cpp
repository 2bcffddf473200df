#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

#include "PluginUnderTest.h"

namespace {
// Allocations of this thread until one fails; 0: none does.
thread_local unsigned allocationsLeft = 0;
}  // namespace

// In place of the library's, for the whole program and the plug-in that it loads. Not inlined: the compiler
// would take a visible free() for the wrong end of a new.
void* operator new(std::size_t size) {
  void* const memory = allocationsLeft != 0 && --allocationsLeft == 0 ? nullptr : std::malloc(size);
  return memory != nullptr ? memory : throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace {

constexpr char kRefusal[] = "a refusal with a text that no string keeps in itself";
constexpr char kNoMemory[] = "Not enough memory to tell what failed";

// A host that allocates nothing and refuses to select a core, or refuses nothing.
struct SparseHost : HostObject {
  explicit SparseHost(const char* answer) : HostObject{&functions}, refusal(answer) {
    functions.setCoreById = [](HostObject* self, const char*) {
      return static_cast<SparseHost*>(self)->refusal;
    };
    functions.lookupReg = [](HostObject*, const char*, Debugger::Address*) -> const char* { return nullptr; };
    functions.reportInfo = [](HostObject*, const char*) -> const char* { return nullptr; };
  }

  HostFunctionTable functions{};
  const char* refusal;
};

// Calls until no allocation is left that could fail. An exception would end the test.
template <typename Call>
void ExpectTextsWhicheverAllocationFails(const std::string& failure, Call call) {
  bool storeFailed = false;
  for (unsigned nth = 1;; ++nth) {
    allocationsLeft = nth;
    const char* const text = call();
    const bool hadMemory = allocationsLeft != 0;
    allocationsLeft = 0;
    ASSERT_NE(text, nullptr);
    storeFailed = storeFailed || text == std::string(kNoMemory);
    if (hadMemory) {
      EXPECT_EQ(text, failure);
      break;
    }
    EXPECT_TRUE(text == std::string("std::bad_alloc") || text == std::string(kNoMemory)) << text;
  }
  EXPECT_TRUE(storeFailed);
}

TEST(OutOfMemory, IsATextForTheHostLikeAnyFailure) {
  const CreateFlashDevice4Function create = PluginEntry();
  SparseHost refusing(kRefusal);
  IFlashDevice4* device = nullptr;
  ExpectTextsWhicheverAllocationFails(
      kRefusal, [&] { return create("", "", "", IFlashProgrammerUtility2(&refusing), &device); });
  EXPECT_EQ(device, nullptr);

  SparseHost host(nullptr);
  ASSERT_EQ(Outcome(create("", "", "", IFlashProgrammerUtility2(&host), &device)), "ok");
  ExpectTextsWhicheverAllocationFails("Unsupported Operation Code: 'Erase every last bit of it'",
                                      [&] { return device->PerformOperation("Erase every last bit of it"); });
  device->Delete();
}

}  // namespace
