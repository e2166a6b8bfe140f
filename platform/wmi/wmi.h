// The part of IIS's WMI provider that a metabase snapshot can serve.
#pragma once

namespace platform::wmi {

// Registers the namespace service with the process's runtime, under the moniker
//
//     winmgmts:{authenticationLevel=pktPrivacy}\\server\root\microsoftiisv2
//
// where the part in braces is optional and case is ignored. The server must be mapped
// (platform::metabase::mapServer). The service has the method ExecQuery, whose argument must be
//
//     Select Name From IIsApplicationPool
//
// and whose result is a collection of the server's application pools in the order of the file
// ("IIsApplicationPool (WMI)"). A pool has the property Name, "W3SVC/APPPOOLS/" followed by the pool's name,
// and the method EnumAppsInPool, which stores an array of the paths of the pool's applications, each with a
// trailing slash, in its argument; for a pool without applications it is an array of one empty string. A
// service uses one snapshot for all calls.
//
// Failures: 0x8004100E for another namespace, 0x80041010 for a query of another class, 0x80041017 for any
// other query, 0x800401E4 for a malformed moniker, and those of platform::metabase::snapshotOf and of reading
// AppPoolId.
void registerMoniker();

}  // namespace platform::wmi
