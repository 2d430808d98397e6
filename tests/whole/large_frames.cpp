// Two functions whose frames the check of frames must object to.
#include <cstddef>
#include <cstdint>

void use_memory(uint8_t *bytes);
void take_a_large_frame();
void take_a_frame_of_any_size(size_t bytes);

void take_a_large_frame() {
  uint8_t bytes[8192];
  use_memory(bytes);
}

void take_a_frame_of_any_size(size_t bytes) { use_memory(static_cast<uint8_t *>(__builtin_alloca(bytes))); }
