// Leaks that the offload path makes by design, for the leak checker of sanitizer builds: the
// first caller of a cache key gets a heap copy of the cached object that is never freed, and a
// multi-step extreme that throws leaves its device temporaries unreleased.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:lookup_and_cache_zarth_\nleak:submit_minmax_usm\n";
}
