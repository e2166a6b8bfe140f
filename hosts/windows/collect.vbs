' Takes stock of a live IIS server: collects everything that TORVINFTPAppDataCom has to tell into a database.
'
'   cscript collect.vbs /server:NAME /database:FILE.mdb [/logs:FOLDER] [/replace]
'
' The database is made where it isn't there, and so are its tables. A server that is in it already is refused unless
' /replace says that its former rows are to go. The two logs go to the database's folder unless /logs says where else.
' The component opens the database with the Jet provider, of which there is only one for 32 bits, so on a 64-bit Windows
' this is for C:\Windows\SysWOW64\cscript.exe. /provider:NAME makes the database with another one.
Option Explicit
Dim Server, Database, Logs, DatabaseLog, ServerLog, Connection, FileSystem, Chosen, Columns, Tables, SizeBefore
Set FileSystem = CreateObject("Scripting.FileSystemObject")
Set Chosen = CreateObject("Scripting.Dictionary")
Set Columns = CreateObject("Scripting.Dictionary")
Set SizeBefore = CreateObject("Scripting.Dictionary")
DescribeTables
ReadArguments
OpenDatabase
Collect
Summarize

' What the component tells while it works. Any object with these members will do.
Class StatusBar
  Public Property Let message(Text)
    WScript.Echo Text
  End Property
End Class

Class ProgressBar
  Public Max
  Public Sub increment()
  End Sub
End Class

Class ProcessCount
  Public Property Let message(Text)
    WScript.Echo "  " & Text
  End Property
End Class

Sub Quit(Text)
  WScript.Echo "collect: " & Text
  WScript.Quit 2
End Sub

Sub ReadArguments()
  Dim At, Argument, Colon, Name
  For Each Name In Array("/server", "/database", "/logs", "/provider", "/replace")
    Chosen.Add Name, ""
  Next
  For At = 0 To WScript.Arguments.Count - 1
    Argument = WScript.Arguments(At)
    Colon = InStr(Argument & ":", ":")
    Name = LCase(Left(Argument, Colon - 1))
    If Not Chosen.Exists(Name) Then Quit "there is no option " & Argument
    Chosen(Name) = Mid(Argument, Colon + 1)
    If Name = "/replace" Then Chosen(Name) = "yes"
  Next
  Server = Chosen("/server")
  Database = Chosen("/database")
  If Server = "" Or Database = "" Then Quit "give it /server:NAME /database:FILE.mdb [/logs:FOLDER] [/replace]"
  Database = FileSystem.GetAbsolutePathName(Database)
  Logs = FileSystem.GetParentFolderName(Database)
  If Chosen("/logs") <> "" Then Logs = FileSystem.GetAbsolutePathName(Chosen("/logs"))
  If Not FileSystem.FolderExists(Logs) Then Quit "there is no folder " & Logs & " for the logs"
  ' The file of the database's failures, whose name is the component's own choice, and the one that it is told.
  DatabaseLog = FileSystem.BuildPath(Logs, "TORVINLog.Log")
  ServerLog = FileSystem.BuildPath(Logs, Server & ".log")
  If Chosen("/provider") = "" Then Chosen("/provider") = "Microsoft.Jet.OLEDB.4.0"
End Sub

Sub DescribeTables()
  Const Site = "Server name|FTP site name|Identifier"
  Const Pool = "Server name|Application pool name"
  Columns.Add "tblFTPSiteInfo", Site
  ' Rows of sites and of pools, which differ in what they have.
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
  Columns.Add "tblMessageSetting", Site & "|Welcome Message|Exit Message|Banner Message" & _
    "|Maximum connections message"
  Columns.Add "tblHomeDirectorySetting", Site & "|Content source|Path|Read|Write|Log visits" & _
    "|Directory Listing Style"
  Columns.Add "tblDirectorySecuritySetting", Site & "|All computer access|Granted IP Address (Subnet mask)" & _
    "|Denied IP Address (Subnet mask)"
  Columns.Add "tblvirtualDirectory", "IISPath|Identifier|Directory name|Content source|Path|Read|Write|Log visits"
  Columns.Add "tblvirtualDirSecurity", "IISPath|Directory name|Identifier|All computer access" & _
    "|Granted IP Address (Subnet mask)|Denied IP Address (Subnet mask)"
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
  Columns.Add "tblWSExtension", "Server name|Web service extension|Description|Status|Required files path" & _
    "|File access"
  Columns.Add "tblAppliedObject", Pool & "|Object name|Object type|IP address|TCP port|State|Local path"
  Tables = Columns.Keys
End Sub

' The rows of a query, which can be counted and walked.
Function Query(Sql)
  Dim Rows
  Set Rows = CreateObject("ADODB.Recordset")
  Rows.CursorLocation = 3
  Set Rows.ActiveConnection = Connection
  Rows.Open Sql
  Set Query = Rows
End Function

' Which rows of a table are the server's. A table without its name has a path, behind whose slash stands what comes
' before the next character's.
Function OfServer(Table)
  Dim Name
  Name = Replace(Server, "'", "''")
  OfServer = " where [Server name] = '" & Name & "'"
  If Left(Columns(Table), 7) <> "IISPath" Then Exit Function
  OfServer = " where [IISPath] >= 'IIS://" & Name & "/' and [IISPath] < 'IIS://" & Name & "0'"
End Function

Function RowsOf(Table)
  RowsOf = Query("select * from [" & Table & "]" & OfServer(Table)).RecordCount
End Function

Function HasTable(Table)
  On Error Resume Next
  Query "select * from [" & Table & "] where 1=2"
  HasTable = (Err.Number = 0)
End Function

Sub OpenDatabase()
  Dim Table, Former
  On Error Resume Next
  If Not FileSystem.FileExists(Database) Then
    CreateObject("ADOX.Catalog").Create "Provider=" & Chosen("/provider") & ";Data Source=" & Database
  End If
  If Err.Number <> 0 Then Quit "the database " & Database & " can't be made: " & Err.Description
  Set Connection = CreateObject("ADODB.Connection")
  Connection.Provider = Chosen("/provider")
  Connection.Open Database
  If Err.Number <> 0 Then Quit "the database " & Database & " can't be opened: " & Err.Description
  On Error GoTo 0
  For Each Table In Tables
    If Not HasTable(Table) Then Connection.Execute "create table [" & Table & "] ([" & _
      Replace(Columns(Table), "|", "] longtext, [") & "] longtext)"
    Former = Former + RowsOf(Table)
  Next
  If Former = 0 Then Exit Sub
  If Chosen("/replace") = "" Then Quit Server & " is in the database already, with " & Former & _
    " rows; /replace deletes them first"
  For Each Table In Tables
    Connection.Execute "delete from [" & Table & "]" & OfServer(Table)
  Next
  WScript.Echo "deleted " & Former & " former rows of " & Server
End Sub

' The object at a path of the server, or Nothing.
Function ObjectAt(Path)
  Set ObjectAt = Nothing
  On Error Resume Next
  Set ObjectAt = GetObject("IIS://" & Server & Path)
End Function

' One of the component's classes, with its logs and with objects that it tells its progress to.
Function NewCollection(ClassName)
  Dim Made
  Set Made = CreateObject("TORVINFTPAppDataCom." & ClassName)
  Made.SetErrorLogPath Logs, ServerLog
  Made.SetProcessStatusUpdater New StatusBar, New ProgressBar, New ProcessCount
  Set NewCollection = Made
End Function

' The texts in a column of the server's rows.
Function Listed(Table, Column)
  Dim Rows, Texts
  Set Rows = Query("select * from [" & Table & "]" & OfServer(Table))
  Set Texts = CreateObject("Scripting.Dictionary")
  Do Until Rows.EOF
    Texts.Add Texts.Count, Rows.Collect(Column)
    Rows.MoveNext
  Loop
  Listed = Texts.Items
End Function

Function HasChildren(Directory)
  Dim Child
  HasChildren = False
  For Each Child In Directory
    HasChildren = True
    Exit Function
  Next
End Function

' The directories below one, each ahead of its own.
Sub CollectBelow(Sites, Site, Directory)
  Dim Child
  For Each Child In Directory
    If HasChildren(Child) Then
      Sites.GetChildVirtualDirectories Server, Site, Child.ADsPath, Database
      CollectBelow Sites, Site, Child
    End If
  Next
End Sub

Sub CollectSites()
  Dim Sites, Tab, Site, Root, RootPath
  Set Sites = NewCollection("FTPCollection")
  Sites.GenerateFTPSiteInfo Server, Database
  For Each Tab In Array("General", "Log File Settings", "Extended Log Properties", "Security Accounts", "Message", _
                        "Home Directory", "Directory Security")
    Sites.GetFTPPropertyInfo Server, Database, Tab, False
  Next
  For Each Site In Listed("tblFTPSiteInfo", "Identifier")
    Set Root = ObjectAt("/MSFTPSVC/" & Site & "/ROOT")
    RootPath = "IIS://" & Server & "/MSFTPSVC/" & Site & "/ROOT"
    If Not Root Is Nothing Then RootPath = Root.ADsPath
    Sites.GetRootVirtualDirectory Server, Site, RootPath, Database
    If Not Root Is Nothing Then CollectBelow Sites, Site, Root
  Next
End Sub

Sub CollectPools()
  Dim Pools, Tab, Pool
  Set Pools = NewCollection("AppPoolCollection")
  If Not ObjectAt("/W3SVC/AppPools") Is Nothing Then
    Pools.GetAppPoolsCount Server, Database
    For Each Tab In Array("General", "Worker Process Recycling", "Memory Recycling", "Performance", "Health", _
                          "Identity")
      Pools.GetAppPoolPropertyInfo Server, Database, Tab, False
    Next
  End If
  Pools.GetWebServiceExtension Server, Database
  For Each Pool In Listed("tblAppPoolInfo", "Application pool name")
    Pools.EnumAppsInPool Server, Database, Pool
  Next
End Sub

' The major version of the server's IIS, or 0 where nobody can tell.
Function Version()
  Version = 0
  On Error Resume Next
  Version = CreateObject("MARLINSCOPEGLOBALCOM.ICommonFunction").getos(Server)
End Function

Function SizeOf(File)
  SizeOf = 0
  If FileSystem.FileExists(File) Then SizeOf = FileSystem.GetFile(File).Size
End Function

Sub Collect()
  Dim HasSites, HasWeb
  SizeBefore(DatabaseLog) = SizeOf(DatabaseLog)
  SizeBefore(ServerLog) = SizeOf(ServerLog)
  HasSites = Not ObjectAt("/MSFTPSVC") Is Nothing
  HasWeb = Not ObjectAt("/W3SVC") Is Nothing
  If Not HasSites And Not HasWeb Then Quit Server & " has neither an FTP service nor a web service that can be reached"
  If HasSites Then CollectSites
  ' Application pools came with version 6.
  If HasWeb And (Version = 0 Or Version >= 6) Then CollectPools
End Sub

' Shows what a log has got by this run, and counts it. A message may be of several lines; a record begins with a date.
Function Problems(Log)
  Dim Text, Line
  Problems = 0
  If SizeOf(Log) = SizeBefore(Log) Then Exit Function
  Set Text = FileSystem.OpenTextFile(Log)
  If SizeBefore(Log) > 0 Then Text.Skip SizeBefore(Log)
  Do Until Text.AtEndOfStream
    Line = Text.ReadLine
    If Mid(Line, 3, 1) = "/" And Mid(Line, 20, 1) = vbTab Then Problems = Problems + 1
    WScript.Echo "  " & Line
  Loop
  Text.Close
End Function

Sub Summarize()
  Dim Table, Told
  WScript.Echo "rows of " & Server & " in " & Database
  For Each Table In Tables
    WScript.Echo "  " & Table & " " & RowsOf(Table)
  Next
  Connection.Close
  Told = Problems(DatabaseLog) + Problems(ServerLog)
  WScript.Echo Told & " problems, told in " & DatabaseLog & " and " & ServerLog
End Sub
