// Reads a model with the installed library and prints its patch count.
#include <iostream>

#include <api/TundrelApi.h>

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    region reg;
    region_fe reg_fe;
    if (!import_data(argv[1], false, reg, reg_fe)) return 1;
    std::cout << "patches " << reg.patchCount() << '\n';
    return reg.patchCount() > 0 ? 0 : 1;
}
