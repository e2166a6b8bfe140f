-- title: Accounts may log on in clear text
-- severity: medium
-- category: security
-- why: FTP sends names and passwords unencrypted, so that anyone on the way can read them.
-- fix: Allow only anonymous connections, or move to FTP over TLS, which FTP 7 and later have.
-- references: Microsoft, FTP basic authentication | https://github.com/MicrosoftDocs/iis-docs/blob/main/iis/configuration/system.applicationHost/sites/site/ftpServer/security/authentication/basicAuthentication.md
-- references: NIST | SP 800-7 | http://ftp.sunet.se/mirror/archive/ftp.sunet.se/pub/security/csir/nist/nistpubs/800-7/node122.html
-- references: CWE | CWE-319
-- requires: ftp_site.only_anonymous
-- columns: only_anonymous boolean, allows_anonymous boolean
select object_id, not only_anonymous as holds, only_anonymous, allows_anonymous
from ftp_site
