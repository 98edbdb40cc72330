#pragma once

#include <QString>

// When the compiler made this build, as "May 12 2020, 12:48:16".
QString buildStamp();
