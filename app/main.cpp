#include "app/Entry.h"

int main(int argc, char** argv) {
    return ql::Entry::main(argc, argv);
}
