// Compiled for Windows only; cppcheck sees nothing wrong here.
int * no_object() {
    return 0;
}
