// Where the data manager gets its examiner when none is given.
#pragma once

#include <memory>

class QVFontExaminer;

std::unique_ptr<QVFontExaminer> createDefaultFontExaminer();
