// Finds and reads the server instance's collation file.
//
// The file (protocol/collation_layout.h) is named by the directory prefix (start-up argument 4),
// "tavucs" and the instance (`TAVRIN_MBX`, 20561 when it is not set).
//
// What can be reached of it is copied once, before it is checked: whoever writes to the file
// afterwards changes no order and leads no look-up astray.

#pragma once

namespace tvsort {

// Puts the file's table in force, if there is a good one. Every failure leaves no table in force
// and lets the start go on: a missing or unreadable file, a path that does not fit, a wrong magic
// number, a file shorter than header and page offsets, a page that does not lie wholly inside the
// file. Only a `TAVRIN_MBX` that is too long is worth a line on standard output.
void loadCollation(const char* directoryPrefix);

}  // namespace tvsort
