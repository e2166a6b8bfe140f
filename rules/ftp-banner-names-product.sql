-- title: The banner names the product
-- severity: info
-- category: security
-- why: An attacker learns from it which weaknesses to try.
-- fix: Use a banner that names neither the product nor its version.
-- references: Microsoft, FTP messages | https://github.com/MicrosoftDocs/iis-docs/blob/main/iis/configuration/system.applicationHost/sites/site/ftpServer/messages.md
-- references: Microsoft, BannerMessage | https://learn.microsoft.com/en-us/previous-versions/windows/it-pro/windows-server-2003/cc779049(v=ws.10)
-- requires: ftp_site.banner_message
-- columns: banner_message text
select object_id,
       strpos(fold(banner_message), 'microsoft') > 0 or strpos(fold(banner_message), 'windows') > 0
         or strpos(fold(banner_message), 'internet information') > 0 as holds,
       banner_message
from ftp_site
