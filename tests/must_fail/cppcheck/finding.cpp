// With the checks of this folder, clang-tidy sees nothing wrong here.
struct number {
    number() {}
    int value;
};

int no_value() {
    return number().value;
}
