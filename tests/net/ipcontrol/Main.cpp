#include "tests/peers/Port53.h"

int main(int argc, char** argv)
{
    return kqlib::test::RunTestsWithPort53(argc, argv);
}
