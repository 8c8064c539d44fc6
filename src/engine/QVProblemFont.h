// A problem-font entry: one font the diagnosis found a problem with. The
// resolution and the report read these; a duplicate group carries its other
// members.
#pragma once

#include "engine/QVFontFile.h"
#include "engine/QVStatus.h"

#include <QList>
#include <memory>

// A font and the file it lives in.
struct QVFontRef {
    QVFontFilePtr fontFile;
    QVStatusPtr fontStatus;
};

struct QVProblemFont {
    QVFontFilePtr fontFile;
    QVStatusPtr fontStatus;
    // 0 to 3, as the error classes.
    int diagnosisType = 0;
    // For duplicates only: the other members of the group, in sorted order.
    QList<QVFontRef> duplicatesArray;
    bool hasDuplicatesArray = false;
    // The entry's row in the resolution window; -1 before it has one.
    int row = -1;
};

using QVProblemFontPtr = std::shared_ptr<QVProblemFont>;
