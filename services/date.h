// The 5-byte date of the format (MTF_DATE_TIME): 40 bits, most significant bit first: year 14,
// month 4, day 5, hour 5, minute 6, second 6. Every date that the system writes is UTC.
#pragma once

namespace MTF {

// Bytes of a date.
constexpr unsigned int date_time_size = 5;

// Writes `time`, in seconds since 1970, to the 5 bytes at `out`; all zero ("no date") for a time
// outside the years 1 to 16383.
void time_to_mtf_date_time(long long time, unsigned char* out);

// Reads the 5 bytes at `date`; 0 for "no date" and for a month or day that no date has.
long long mtf_date_time_to_time(const unsigned char* date);

}  // namespace MTF
