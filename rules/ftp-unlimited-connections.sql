-- title: Connections are not limited
-- severity: low
-- category: reliability
-- why: Many transfers at once can take the machine from everything else that it does.
-- fix: Limit the connections of the site to what it needs.
-- references: Microsoft, MaxConnections | https://learn.microsoft.com/es-es/previous-versions/windows/it-pro/windows-server-2003/cc728043(v=ws.10)
-- references: NIST | SP 800-7 | http://ftp.sunet.se/mirror/archive/ftp.sunet.se/pub/security/csir/nist/nistpubs/800-7/node122.html
-- references: CWE | CWE-770
-- requires: ftp_site.maximum_connections
-- columns: maximum_connections integer
select object_id, maximum_connections = -1 as holds, maximum_connections
from ftp_site
