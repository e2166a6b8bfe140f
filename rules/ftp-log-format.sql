-- title: Log format that FTP 7 and later lack
-- severity: info
-- category: migration
-- why: FTP 7 and later write logs in the W3C format alone.
-- fix: Change to the W3C format, and adapt what reads the logs.
-- references: Microsoft, FTP logFile | https://github.com/MicrosoftDocs/iis-docs/blob/main/iis/configuration/system.applicationHost/sites/site/ftpServer/logFile.md
-- requires: ftp_site.logging ftp_site.log_format
-- columns: log_format text
select object_id, logging and log_format <> 'W3C Extended Log File Format' as holds, log_format
from ftp_site
