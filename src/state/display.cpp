#include "state/display.h"

namespace sondex {

SharedInt wantCurses{0};
SharedInt cursesFailed{1};

SharedInt g_Delay{10};
SharedInt g_updates{1};
SharedInt g_Color{1};
SharedInt g_wantLines{1};
SharedInt g_Delta{0};
SharedInt g_IrixMode{0};
SharedInt g_reverse{0};
SharedInt g_filterSockets{0};
SharedInt g_showArgs{0};

SharedInt g_Processors{1};
SharedInt g_EachCPU{0};
SharedInt g_showMemory{1};
SharedInt g_Compression{1};
SharedInt g_Swap{1};

SharedInt g_selectedProcess{0};
SharedInt g_firstProcToShow{0};
SharedInt g_Row{0};
SharedInt g_procs_viewable{0};
SharedInt banners{6};
SharedInt g_Max_Cols{19};
SharedInt g_lastVisibleCol{19};
// Plain output has no screen to fit: as wide as any set of columns.
SharedInt y{1000};
SharedInt x{1000};

SharedInt g_VMPressureDetected{0};

}  // namespace sondex
