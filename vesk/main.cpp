#include "vesk/CommandLine.h"

int main(int argc, char** argv) {
    return vesk::run(argc, argv);
}
