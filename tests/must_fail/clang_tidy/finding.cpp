// cppcheck sees nothing wrong here.
int * no_object() {
    return 0;
}
