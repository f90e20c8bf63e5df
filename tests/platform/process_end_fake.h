#pragma once

// From now on, the logging library assumes that the process is ending. Native builds only.
void PretendThatProcessEnds();
