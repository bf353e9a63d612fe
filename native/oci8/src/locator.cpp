// Callers' variables hold addresses of locators, so each use goes through the pool like a handle
// argument: a locator that was freed since is found out and never followed.
#include "locator.h"

#include <cstring>

namespace oci8 {
namespace {

constexpr int kInvalidLocator = 22275;

// The variable may hold anything by now. It need not be aligned.
Locator* find_locator(const ub1* variable) noexcept {
  const void* address = nullptr;
  std::memcpy(&address, variable, sizeof address);
  return pool<Locator>.find(address);
}

}  // namespace

const LargeName& Locator::named() const {
  if (name.id == 0) fail(kInvalidLocator);
  return name;
}

size_t element_size(ub2 external, size_t announced) noexcept {
  return external == SQLT_RSET || is_locator(external) ? sizeof(void*) : announced;
}

LargeName name_in_variable(const ub1* variable, ub2 external) {
  const Locator* locator = find_locator(variable);
  if (locator == nullptr) fail(kInvalidLocator);
  // A CLOB's name in a BLOB variable would have the engine count bytes as characters.
  const bool clob = locator->named().unit == LargeName::Unit::Character;
  if (clob != (external == SQLT_CLOB)) fail(932);
  return locator->name;
}

int fill_variable(const ub1* variable, const LargeName& name) noexcept {
  Locator* locator = find_locator(variable);
  if (locator == nullptr) return kInvalidLocator;
  locator->name = name;
  return 0;
}

}  // namespace oci8
