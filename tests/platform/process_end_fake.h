#pragma once

// From now on, the logging library takes the process to be ending. Not on Windows.
void PretendThatProcessEnds();
