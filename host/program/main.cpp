#include "host/program/program.h"

int main(int argc, char** argv) {
    return Host::Main(argc, argv);
}
