-- title: No user can log on
-- severity: low
-- category: housekeeping
-- why: Only anonymous connections are allowed, and anonymous connections are not.
-- fix: Allow anonymous connections or those with accounts, or remove the site.
-- references: Microsoft, AnonymousOnly | https://learn.microsoft.com/es-es/previous-versions/windows/it-pro/windows-server-2003/cc784608(v=ws.10)
-- requires: ftp_site.only_anonymous ftp_site.allows_anonymous
-- columns: only_anonymous boolean, allows_anonymous boolean
select object_id, only_anonymous and not allows_anonymous as holds, only_anonymous, allows_anonymous
from ftp_site
