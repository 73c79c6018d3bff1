// What the font and window libraries keep until the process ends is no leak of ours.
extern "C" const char* __lsan_default_suppressions();  // NOLINT: the sanitizer's name
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libfontconfig\nleak:libX11\nleak:libXft\n";
}
