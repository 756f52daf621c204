// How the cost of what runs all the time grows with the number of sessions.
#pragma once

/// Prints the time of one stopped-children pass and of one busSessionsInfo at 22, 200 and 1,000 records, made here with
/// two real children each.
void tableGrowth();
