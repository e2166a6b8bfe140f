// The part of the WMI provider for IIS that can be answered from a metabase snapshot.
#pragma once

namespace platform::wmi {

// Enters the namespace service in the process's runtime, under the moniker
//
//     winmgmts:{authenticationLevel=pktPrivacy}\\server\root\microsoftiisv2
//
// with or without the part in braces, without regard to case. The server is one that
// platform::metabase::mapServer knows. The service has the method ExecQuery with one text, which must be
//
//     Select Name From IIsApplicationPool
//
// and gives a collection of the server's application pools in the order of its file ("IIsApplicationPool
// (WMI)"). A pool has the property Name, "W3SVC/APPPOOLS/" and the pool's name, and the method
// EnumAppsInPool, which writes an array of the paths of the pool's applications, each with a closing slash,
// into its one argument; a pool without applications gives an array of one empty text. All of one service's
// answers come from one snapshot.
//
// Fails with 0x8004100E for another namespace, 0x80041010 for a query of another class, 0x80041017 for any
// other query, 0x800401E4 for a moniker of another form, as platform::metabase::snapshotOf does, and as
// reading the applications' pools does.
void registerMoniker();

}  // namespace platform::wmi
