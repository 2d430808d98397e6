#include "tests/fuzz/operators.h"

#include <cstdio>
#include <cstdlib>

namespace fuzz {

std::span<const Family> all_families() {
  static const Family families[] = {{"convert", convert_operators()},     {"activation", activation_operators()},
                                    {"detection", detection_operators()}, {"pool", pool_operators()},
                                    {"rearrange", rearrange_operators()}, {"select", select_operators()}};
  return families;
}

const Family *family_of_name(std::string_view name) {
  for (const Family &family : all_families()) {
    if (name == family.name) return &family;
  }
  return nullptr;
}

void run_input(const Family &family, const uint8_t *bytes, size_t count) {
  Source source = source_of_bytes(bytes, count);
  const Operator &chosen = family.operators[draw_bytes(source, 1) % family.operators.size()];
  const std::string difference = chosen.run(source);
  if (difference.empty()) return;
  std::fprintf(stderr, "%s: %s\n", chosen.name, difference.c_str());
  std::abort();
}

}  // namespace fuzz
