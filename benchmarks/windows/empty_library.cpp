extern "C" __declspec(dllexport) int answer() {
    return 0;
}
