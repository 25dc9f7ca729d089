#include "ZWelkApplication.h"

int main(int argc, char** argv)
{
    return WelkPlugin::runZWelk(argc, argv);
}
