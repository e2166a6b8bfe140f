' Inventories a live IIS server: collects everything that TORVINFTPAppDataCom reports into a database.
'
'   cscript collect.vbs /server:NAME /database:FILE.mdb [/logs:FOLDER] [/replace]
'
' The database and its tables are created if missing. A server that is already in it is refused unless /replace deletes
' its previous rows. The two logs go to the folder of the database unless /logs names another. The component opens the
' database with the Jet provider, which exists for 32 bits only, so a 64-bit Windows needs
' C:\Windows\SysWOW64\cscript.exe. /provider:NAME creates the database with another provider.
Option Explicit
Dim Server, Database, Logs, DatabaseLog, ServerLog, Connection, FileSystem, Chosen, Columns
Dim LinesBefore, HasSites, HasWeb, Sites, Pools, Failures
Set FileSystem = CreateObject("Scripting.FileSystemObject")
Set Chosen = CreateObject("Scripting.Dictionary")
Set Columns = CreateObject("Scripting.Dictionary")
DescribeTables
ReadArguments
' Ends the script through Quit, because the script host returns 0 for a runtime error.
On Error Resume Next
Collect
Quit "cannot collect " & Server & " into " & Database & ": " & Err.Description

Sub Collect()
  FindServer
  OpenDatabase
  LinesBefore = Array(UBound(LinesOf(DatabaseLog)), UBound(LinesOf(ServerLog)))
  If HasSites Then CollectSites
  ' IIS 6 introduced application pools.
  If HasWeb And (Version = 0 Or Version >= 6) Then CollectPools
  Summarize
End Sub

' A progress object of the component. Any object with these members is accepted.
Class Progress
  Public Lead
  Public Max
  Public Property Let message(Text)
    WScript.Echo Lead & Text
  End Property
  Public Sub increment()
  End Sub
End Class

Sub Quit(Text)
  WScript.Echo "collect: " & Text
  WScript.Quit 2
End Sub

Sub ReadArguments()
  Dim At, Argument, Colon, Name
  For At = 0 To WScript.Arguments.Count - 1
    Argument = WScript.Arguments(At)
    Colon = InStr(Argument & ":", ":")
    Name = LCase(Left(Argument, Colon - 1))
    If InStr(" /server /database /logs /provider /replace ", " " & Name & " ") = 0 Then Quit "no option " & Argument
    Chosen(Name) = Mid(Argument, Colon + 1)
  Next
  Server = Chosen("/server")
  If Server = "" Or Chosen("/database") = "" Then Quit "give /server:NAME /database:FILE.mdb [/logs:FOLDER] [/replace]"
  Database = FileSystem.GetAbsolutePathName(Chosen("/database"))
  Logs = FileSystem.GetParentFolderName(Database)
  If Chosen("/logs") <> "" Then Logs = FileSystem.GetAbsolutePathName(Chosen("/logs"))
  If Not FileSystem.FolderExists(Logs) Then Quit "no folder " & Logs & " for the logs"
  ' The log of database failures, whose name the component prescribes, and the log of the server's failures.
  DatabaseLog = FileSystem.BuildPath(Logs, "TORVINLog.Log")
  ServerLog = FileSystem.BuildPath(Logs, Server & ".log")
  If Chosen("/provider") = "" Then Chosen("/provider") = "Microsoft.Jet.OLEDB.4.0"
End Sub

Sub DescribeTables()
  Const Site = "Server name|FTP site name|Identifier", Pool = "Server name|Application pool name"
  Const Access = "|All computer access|Granted IP Address (Subnet mask)|Denied IP Address (Subnet mask)"
  Columns.Add "tblFTPSiteInfo", Site
  Columns.Add "tblGeneral", Site & "|IP Address|TCP Port|Maximum Connections|Connection Timeout (seconds)|State" & _
    "|Application pool name"
  Columns.Add "tblLogFileSetting", Site & "|Enable Logging|Active log format|New Log Time Period" & _
    "|Use local time for file naming and rollover|Log file directory|Log file name|ODBC Data Source Name (DSN)" & _
    "|ODBC User name|ODBC Table name"
  Columns.Add "tblExtendedLogSetting", Site & "|Date|Time|Client IP Address|User Name|Service Name|Computer Name" & _
    "|Server IP Address|Server Port|Method|URI Stem|URI Query|Protocol Status|Win32 Status|Bytes Sent" & _
    "|Bytes Received|Time Taken|Protocol Version|Host|User Agent|Cookie|Referer"
  Columns.Add "tblSecurityAccounts", Site & "|Allow Anonymous Connections|User name" & _
    "|Allow only anonymous connections|Allow IIS to control password"
  Columns.Add "tblMessageSetting", Site & "|Welcome Message|Exit Message|Banner Message|Maximum connections message"
  Columns.Add "tblHomeDirectorySetting", Site & "|Content source|Path|Read|Write|Log visits|Directory Listing Style"
  Columns.Add "tblDirectorySecuritySetting", Site & Access
  Columns.Add "tblvirtualDirectory", "IISPath|Identifier|Directory name|Content source|Path|Read|Write|Log visits"
  Columns.Add "tblvirtualDirSecurity", "IISPath|Directory name|Identifier" & Access
  Columns.Add "tblAppPoolInfo", Pool
  Columns.Add "tblWProcessRecycling", Pool & "|Recycle settings|Recycle (in minutes)|Recycle request settings" & _
    "|Number of recycle requests|Recycle schedule settings|Scheduled recycle at"
  Columns.Add "tblMemoryRecycling", Pool & "|Maximum virtual memory settings|Maximum virtual memory (mb)" & _
    "|Maximum used memory settings|Maximum used memory (mb)"
  Columns.Add "tblPerformance", Pool & "|Idle timeout settings|Idle timeout (in minutes)" & _
    "|Request queue limit settings|Number of request queues|Enable CPU monitoring|Maximum CPU use (percentage)" & _
    "|Refresh CPU usage numbers (in minutes)|Action performed when CPU usage exceeds maximum CPU use" & _
    "|Maximum number of worker processes"
  Columns.Add "tblHealth", Pool & "|Enable pinging|Ping worker process (frequency in seconds)" & _
    "|Enable rapid-fail protection|Rapid-fail protection failures|Rapid-fail protection time period (in minutes)" & _
    "|Startup time limit (in seconds)|Shutdown time limit (in seconds)"
  Columns.Add "tblIdentity", Pool & "|Application pool identity settings|Security account"
  Columns.Add "tblWSExtension", "Server name|Web service extension|Description|Status|Required files path|File access"
  Columns.Add "tblAppliedObject", Pool & "|Object name|Object type|IP address|TCP port|State|Local path"
End Sub

' The server's rows of a table, as a recordset that can be counted and iterated.
Function RowsOf(Table)
  Dim Rows
  Set Rows = CreateObject("ADODB.Recordset")
  Rows.CursorLocation = 3
  Set Rows.ActiveConnection = Connection
  Rows.Open "select * from [" & Table & "]" & OfServer(Table)
  Set RowsOf = Rows
End Function

' The condition for the server's rows of a table. In a table without a server column, paths of the server start with
' IIS://NAME/ and sort before IIS://NAME0, as "0" follows "/". (A linguistic order ignores hyphens, and "_" in a pattern
' matches any character.)
Function OfServer(Table)
  Dim Name
  Name = Replace(Server, "'", "''")
  OfServer = " where [Server name] = '" & Name & "'"
  If Left(Columns(Table), 7) <> "IISPath" Then Exit Function
  OfServer = " where [IISPath] >= 'IIS://" & Name & "/' and [IISPath] < 'IIS://" & Name & "0'" & _
    " and [IISPath] like 'IIS://" & Name & "/%'"
End Function

Sub OpenDatabase()
  Dim Table, Previous
  If Not FileSystem.FileExists(Database) Then
    CreateObject("ADOX.Catalog").Create "Provider=" & Chosen("/provider") & ";Data Source=" & Database
  End If
  Set Connection = CreateObject("ADODB.Connection")
  Connection.Provider = Chosen("/provider")
  Connection.Open Database
  On Error Resume Next
  ' Fails for an existing table.
  For Each Table In Columns.Keys
    Connection.Execute "create table [" & Table & "] ([" & Replace(Columns(Table), "|", "] longtext, [") & "] longtext)"
  Next
  On Error GoTo 0
  For Each Table In Columns.Keys
    Previous = Previous + RowsOf(Table).RecordCount
  Next
  If Previous = 0 Then Exit Sub
  If Not Chosen.Exists("/replace") Then Quit "the database already has " & Previous & " rows of " & Server & _
    " (use /replace to replace them)"
  For Each Table In Columns.Keys
    Connection.Execute "delete from [" & Table & "]" & OfServer(Table)
  Next
  WScript.Echo "deleted " & Previous & " previous rows of " & Server
End Sub

' Prints and counts a failure of the script's own reads.
Sub ReportFailure(Where)
  WScript.Echo "  " & Where & ": 0x" & Hex(Err.Number) & " " & Err.Description
  Failures = Failures + 1
  Err.Clear
End Sub

' The object at a path of the server, or Nothing if there is none.
Function ObjectAt(Path)
  Set ObjectAt = Nothing
  On Error Resume Next
  Set ObjectAt = GetObject("IIS://" & Server & Path)
  If Err.Number <> 0 And Err.Number <> &H80070003 Then ReportFailure "IIS://" & Server & Path
End Function

' Reads the server and creates both classes before anything is changed.
Sub FindServer()
  HasSites = Not ObjectAt("/MSFTPSVC") Is Nothing
  HasWeb = Not ObjectAt("/W3SVC") Is Nothing
  If Failures > 0 Then Quit "cannot read " & Server
  If Not HasSites And Not HasWeb Then Quit Server & " has neither an FTP service nor a web service"
  Set Sites = NewCollection("FTPCollection")
  Set Pools = NewCollection("AppPoolCollection")
End Sub

' One of the component's classes, with its logs and progress objects.
Function NewCollection(ClassName)
  Dim Made, Count
  Set Made = CreateObject("TORVINFTPAppDataCom." & ClassName)
  Set Count = New Progress
  Count.Lead = "  "
  Made.SetErrorLogPath Logs, ServerLog
  Made.SetProcessStatusUpdater New Progress, New Progress, Count
  Set NewCollection = Made
End Function

' Discards the provider's cached pages, which may be some seconds older than the component's writes.
Sub Refresh()
  Connection.Close
  Connection.Open Database
  On Error Resume Next
  CreateObject("JRO.JetEngine").RefreshCache Connection
End Sub

' The paths of the directories below a directory, as far as they can be read.
Function DirectoriesBelow(Directory, Path)
  Dim Child, Found
  Set Found = CreateObject("Scripting.Dictionary")
  Set DirectoriesBelow = Found
  On Error Resume Next
  For Each Child In Directory
    If Err.Number <> 0 Then Exit For
    Found.Add Child.ADsPath, Child
    If Err.Number <> 0 Then ReportFailure "a directory below " & Path
  Next
  If Err.Number <> 0 Then ReportFailure "the directories below " & Path
End Function

' Collects the directories below each directory, parents before children.
Sub CollectBelow(Site, Directories)
  Dim Path, Below
  For Each Path In Directories.Keys
    Set Below = DirectoriesBelow(Directories(Path), Path)
    If Below.Count > 0 Then
      Sites.GetChildVirtualDirectories Server, Site, Path, Database
      CollectBelow Site, Below
    End If
  Next
End Sub

Sub CollectSites()
  Dim Tab, Rows, Site, Root, Path
  Sites.GenerateFTPSiteInfo Server, Database
  For Each Tab In Array("General", "Log File Settings", "Extended Log Properties", "Security Accounts", "Message", _
                        "Home Directory", "Directory Security")
    Sites.GetFTPPropertyInfo Server, Database, Tab, False
  Next
  Refresh
  Set Rows = RowsOf("tblFTPSiteInfo")
  Do Until Rows.EOF
    Site = Rows.Collect("Identifier")
    Path = "IIS://" & Server & "/MSFTPSVC/" & Site & "/ROOT"
    Set Root = ObjectAt("/MSFTPSVC/" & Site & "/ROOT")
    On Error Resume Next
    If Not Root Is Nothing Then Path = Root.ADsPath
    On Error GoTo 0
    Sites.GetRootVirtualDirectory Server, Site, Path, Database
    If Not Root Is Nothing Then CollectBelow Site, DirectoriesBelow(Root, Path)
    Rows.MoveNext
  Loop
End Sub

Sub CollectPools()
  Dim Tab, Rows
  If Not ObjectAt("/W3SVC/AppPools") Is Nothing Then
    Pools.GetAppPoolsCount Server, Database
    For Each Tab In Array("General", "Worker Process Recycling", "Memory Recycling", "Performance", "Health", _
                          "Identity")
      Pools.GetAppPoolPropertyInfo Server, Database, Tab, False
    Next
  End If
  Pools.GetWebServiceExtension Server, Database
  Refresh
  Set Rows = RowsOf("tblAppPoolInfo")
  Do Until Rows.EOF
    Pools.EnumAppsInPool Server, Database, Rows.Collect("Application pool name")
    Rows.MoveNext
  Loop
End Sub

' The major version of the server's IIS, or 0 if it cannot be determined.
Function Version()
  Version = 0
  On Error Resume Next
  Version = CreateObject("MARLINSCOPEGLOBALCOM.ICommonFunction").getos(Server)
End Function

' The lines of a log, each ended by a line break, so the last element is empty.
Function LinesOf(Log)
  LinesOf = Array("")
  If Not FileSystem.FileExists(Log) Then Exit Function
  If FileSystem.GetFile(Log).Size > 0 Then LinesOf = Split(FileSystem.OpenTextFile(Log).ReadAll, vbCrLf)
End Function

' Prints and counts the records that this run added to a log: a record starts with a date.
Function Problems(Log, From)
  Dim Lines, At
  Problems = 0
  Lines = LinesOf(Log)
  For At = From To UBound(Lines) - 1
    If Mid(Lines(At), 3, 1) = "/" And Mid(Lines(At), 20, 1) = vbTab Then Problems = Problems + 1
    WScript.Echo "  " & Lines(At)
  Next
End Function

Sub Summarize()
  Dim Table, Count
  Refresh
  WScript.Echo "rows of " & Server & " in " & Database
  For Each Table In Columns.Keys
    WScript.Echo "  " & Table & " " & RowsOf(Table).RecordCount
  Next
  Count = Problems(DatabaseLog, LinesBefore(0)) + Problems(ServerLog, LinesBefore(1))
  If Failures > 0 Then WScript.Echo Failures & " failures to read the server, listed above"
  WScript.Echo Count & " problems, recorded in " & DatabaseLog & " and " & ServerLog
  If Count + Failures > 0 Then WScript.Quit 1
  WScript.Quit 0
End Sub
