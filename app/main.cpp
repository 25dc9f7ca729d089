#include "ZWelkApplication.h"

#include "geometry/HugePages.h"

int main(int argc, char** argv)
{
    GeometryStack2::configureLargeAllocations();
    return WelkPlugin::runZWelk(argc, argv);
}
