// The Mac error codes the resource layer and the fork storage answer with, and
// how an errno from a file operation becomes one.
#pragma once

#include <QtGlobal>

namespace QVResourceError
{
constexpr qint16 NoErr = 0;
constexpr qint16 DirFull = -33;
constexpr qint16 DskFull = -34;
constexpr qint16 IoErr = -36;
constexpr qint16 BadFileName = -37;
constexpr qint16 FileNotOpen = -38;
constexpr qint16 Eof = -39;
constexpr qint16 FileNotFound = -43;
constexpr qint16 WritePermission = -44;
constexpr qint16 FileLocked = -45;
constexpr qint16 DuplicateFile = -48;
constexpr qint16 OpenForWriting = -49;
constexpr qint16 Param = -50;
constexpr qint16 Permission = -54;
constexpr qint16 WritePermissionErr = -61;
constexpr qint16 DirNotFound = -120;
constexpr qint16 MemFull = -108;
constexpr qint16 CantDecompress = -186;
constexpr qint16 WritingPastEnd = -189;
constexpr qint16 ResNotFound = -192;
constexpr qint16 ResFileNotFound = -193;
constexpr qint16 AddResFailed = -194;
constexpr qint16 RmvResFailed = -196;
constexpr qint16 ResAttrErr = -198;
constexpr qint16 MapRead = -199;

// The code of a failed file operation's errno: -43 no file or
// folder, -54 permission, -44 read-only volume, -34 full disk or quota, -37
// name too long, -36 anything else; 0 for 0.
qint16 fromErrno(int error);
} // namespace QVResourceError
