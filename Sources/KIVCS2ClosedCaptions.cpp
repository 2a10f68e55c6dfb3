// Closed captions: ancillary words and packets, MCC caption files, SCC caption files.

// ---- Caption words and packets (SMPTE 291M, 334, 436M; CEA-608, CEA-708) ----

// ---- MCC caption files ----

// ---- SCC caption files ----
