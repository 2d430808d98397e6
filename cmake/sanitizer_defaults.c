/* Read by the address sanitizer at start-up. The leak check stops the traced threads, which the emulator does not support. */
const char *__asan_default_options(void);
const char *__asan_default_options(void) { return "detect_leaks=0"; }
