// Under the address sanitizer only: GTK and the libraries it draws text with keep caches for
// the life of the process (fontconfig's font sets, GTK's singletons, modules it loads and
// unloads) and free none of them at exit. Those are not leaks of the windows; allocations
// made by the windows' own code outside these libraries are still reported. Full unwinding
// lets a leak made inside an unloaded module still show the toolkit frame that asked for it.
#if defined(__SANITIZE_ADDRESS__)

extern "C" __attribute__((used, visibility("default"))) const char* __lsan_default_suppressions() {
    return "leak:libgtk-4.so\n"
           "leak:libfontconfig.so\n"
           "leak:libpango-1.0.so\n"
           "leak:libpangocairo-1.0.so\n"
           "leak:libpangoft2-1.0.so\n"
           "leak:libcairo.so\n"
           "leak:libharfbuzz.so\n"
           "leak:libgdk_pixbuf-2.0.so\n"
           "leak:libepoxy.so\n";
}

extern "C" __attribute__((used, visibility("default"))) const char* __asan_default_options() {
    return "fast_unwind_on_malloc=0";
}

#endif
