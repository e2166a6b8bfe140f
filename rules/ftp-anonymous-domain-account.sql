-- title: Anonymous access uses a domain account
-- severity: medium
-- category: security
-- why: Anonymous users have the rights of an account that is valid on other machines as well, and IIS cannot keep its
--   password in step.
-- fix: Use a local account without rights elsewhere.
-- references: Microsoft, AnonymousUserName | https://learn.microsoft.com/en-us/previous-versions/windows/it-pro/windows-server-2003/cc775569(v=ws.10)
-- requires: ftp_site.allows_anonymous ftp_site.anonymous_user
-- columns: anonymous_user text identifying
select object_id,
       allows_anonymous
         and (strpos(anonymous_user, '@') > 0
              or strpos(anonymous_user, '\') > 1
                 and fold(substr(anonymous_user, 1, strpos(anonymous_user, '\') - 1)) not in (fold(server), '.')) as holds,
       anonymous_user
from ftp_site
