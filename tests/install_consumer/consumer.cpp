// A consumer of the installed library: includes the umbrella header only.
#include <quelvane/quelvane.h>

#include <cstdio>

int main()
{
    MErrno err = 0;
    std::printf("libquelvane %d %d\n", libquelvaneVersion(), err);
    return libquelvaneVersion() == 3504 ? 0 : 1;
}
