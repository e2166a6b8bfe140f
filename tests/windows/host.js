// A host in JScript: argument and result types that differ from VBScript.
// cscript host.js SERVER DATABASE LOGS
var server = WScript.Arguments(0), database = WScript.Arguments(1), logs = WScript.Arguments(2);
var bar = {Max: 0, steps: 0, increment: function () { this.steps++; }};
var status = {message: ""}, count = {message: ""};

function component(name) {
  var made = new ActiveXObject("TORVINFTPAppDataCom." + name);
  made.SetErrorLogPath(logs, logs + "\\object.log");
  made.SetProcessStatusUpdater(status, bar, count);
  return made;
}

var sites = component("FTPCollection"), pools = component("AppPoolCollection");
WScript.Echo("sites " + sites.GetFTPSitesCount(server) + ", pools " + pools.GetTotalAppPools(server));
// The last argument is omitted; the case of the name differs.
sites.getftppropertyinfo(server, database, "Security Accounts", false);
sites.GetFTPPropertyInfo(server, database, "Message", true, "1");
pools.GetAppPoolPropertyInfo(server, database, "Health", false);
WScript.Echo("status " + status.message + ", " + (bar.steps > 0 && count.message !== "" ? "progress" : "none"));
WScript.Echo("property " + sites.mstrErrorLogPath.substr(logs.length));
sites.mstrErrorLogPath = "M:\\nowhere\\object.log";
try {
  sites.GetFTPSitesCount("nobody");
  WScript.Echo("no failure");
} catch (failure) {
  WScript.Echo("failure " + (failure.number & 0xFFFF) + ", " + (failure.description.indexOf("M:\\nowhere") >= 0));
}
try {
  sites.NoSuchMember();
  WScript.Echo("no failure");
} catch (failure) {
  WScript.Echo("failure " + (failure.number & 0xFFFF));
}
WScript.Echo("done");
