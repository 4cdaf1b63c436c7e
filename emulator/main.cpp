#include <cstdio>

int main() {
    std::fprintf(stderr, "varnholt-emulator: not built yet\n");
    return 1;
}
