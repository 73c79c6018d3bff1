// A library, but no script engine.
extern "C" int fnSomethingElse() {
    return 1;
}
