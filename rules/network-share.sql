-- title: Content on a network share
-- severity: info
-- category: migration
-- why: The other machine, its share and the account that reaches it have to move along, or stay.
-- fix: Move the content to the server, or make the share and an account for it available to the new one.
-- references: Microsoft, UNCUserName | https://learn.microsoft.com/en-us/previous-versions/windows/it-pro/windows-server-2003/cc778553(v=ws.10)
-- requires: ftp_site.path ftp_directory.path application.path
-- columns: path text identifying
select object_id, starts_with(path, '\\') as holds, path
from (select object_id, path from ftp_site
      union all select object_id, path from ftp_directory
      union all select object_id, path from application) content
