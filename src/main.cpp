// naro_algo: the image-analysis and light-control process of an indoor camera. Takes no arguments.
#include "lifecycle.h"

int main(void)
{
    return lifecycle_run();
}
