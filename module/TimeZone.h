// TimeZone.h: the process time zone. The module works in one fixed zone,
// "GST0" (zero offset, no daylight saving), which CModule::SetTimeTz() puts
// into the environment.
//
// Thread-safety: reads the environment; not safe against a concurrent
// setenv, putenv or unsetenv.

#ifndef DATASTORE_MODULE_TIMEZONE_H_
#define DATASTORE_MODULE_TIMEZONE_H_

// True when the environment variable "TZ" is set and equal to "GST0".
bool CheckTimeZone();

#endif  // DATASTORE_MODULE_TIMEZONE_H_
