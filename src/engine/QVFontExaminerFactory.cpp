#include "engine/QVFontExaminerFactory.h"

#include "engine/QVFontDiagnose.h"

std::unique_ptr<QVFontExaminer> createDefaultFontExaminer()
{
    return std::make_unique<QVFontDiagnose>();
}
