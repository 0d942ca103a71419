// SSD endurance: which drives report it and at which level they stand.
#pragma once

// Loads the endurance table once per process.
void strgGetInfFile();
