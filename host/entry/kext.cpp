// The list of loaded kernel extensions. What an extension's keys say is left out.
#include "darwin/kext.h"

#include <string>
#include <utility>
#include <vector>

#include "host/entry/answer.h"
#include "host/entry/core_foundation.h"
#include "host/machine/kernel.h"

darwin::CFDictionaryRef darwin::OSKextCopyLoadedKextInfo(CFArrayRef, CFArrayRef) {
  CFDictionaryRef list = nullptr;
  host::guarded([&]() -> host::Errno {
    std::vector<std::string> identifiers;
    const host::Errno error = host::kernel().kernelExtensions(identifiers);
    if (error != host::kAnswered) return error;
    std::vector<host::DictionaryEntry> entries;
    entries.reserve(identifiers.size());
    for (std::string &identifier : identifiers) {
      entries.emplace_back(host::makeString(std::move(identifier)), host::makeDictionary({}));
    }
    list = host::makeDictionary(std::move(entries)).release<CFDictionaryRef>();
    return host::kAnswered;
  });
  return list;
}
