#include <quelvane/version.h>

int libquelvaneVersion()
{
    return 3504;
}
