#include "ZWelkApplication.h"

#include "geometry/HugePages.h"
#include "optimisation/BlasThreads.h"

int main(int argc, char** argv)
{
    GeometryStack2::configureLargeAllocations();
    LinearSystemsSolvers::parkIdleBlasThreads();
    return WelkPlugin::runZWelk(argc, argv);
}
