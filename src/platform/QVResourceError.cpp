#include "platform/QVResourceError.h"

#include <cerrno>

qint16 QVResourceError::fromErrno(int error)
{
    switch (error) {
    case 0:
        return NoErr;
    case ENOENT:
    case ENOTDIR:
        return FileNotFound;
    case EACCES:
    case EPERM:
        return Permission;
    case EROFS:
        return WritePermission;
    case ENOSPC:
    case EDQUOT:
        return DskFull;
    case ENAMETOOLONG:
        return BadFileName;
    default:
        return IoErr;
    }
}
