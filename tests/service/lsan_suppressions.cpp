// Leaks that the GPU service makes by design, for the leak checker of sanitizer builds: the first
// caller of a cache key gets a heap copy of the cached object that is never freed.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:lookup_and_cache_zarth_\n";
}
