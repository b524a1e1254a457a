#include <cstdint>
#include <span>

#include "plat/messages.h"
#include "plat/windows.h"
#include "ui/gtk_kinds.h"

// The wait window's pictures are compiled into the program beside the wait window itself (src/bio). The
// reference is weak so that programs without a wait window (tools, tests of the platform) link without
// them; a program that shows the window has them, since the window loads them too.
__attribute__((weak)) std::span<const std::uint8_t> findPngResource(plat::UINT id);

namespace plat::ui {

namespace {

constexpr int kWaitWidth = 203;
constexpr int kWaitHeight = 268;

GdkPixbuf* pictureOf(UINT pictureId) {
    if (findPngResource == nullptr) {
        return nullptr;
    }
    const std::span<const std::uint8_t> png = findPngResource(pictureId);
    if (png.empty()) {
        return nullptr;
    }
    GdkPixbufLoader* loader = gdk_pixbuf_loader_new_with_type("png", nullptr);
    GdkPixbuf* picture = nullptr;
    if (loader != nullptr && gdk_pixbuf_loader_write(loader, png.data(), png.size(), nullptr) == TRUE &&
        gdk_pixbuf_loader_close(loader, nullptr) == TRUE) {
        picture = gdk_pixbuf_loader_get_pixbuf(loader);
        if (picture != nullptr) {
            g_object_ref(picture);
        }
    }
    if (loader != nullptr) {
        g_object_unref(loader);
    }
    return picture;
}

}  // namespace

gboolean GtkWait::_onDelete(GtkWidget*, GdkEvent*, gpointer self) {
    // The close box ends the wait as WM_CLOSE does: the window's thread destroys the window, then
    // closed() takes ours away.
    auto* wait = static_cast<GtkWait*>(self);
    if (wait->m_hWindow != nullptr) {
        PostMessageW(wait->m_hWindow, WM_CLOSE, 0, 0);
    }
    return TRUE;
}

void GtkWait::shown(HWND window) {
    Reply<bool> built;
    m_loop.post([this, window, &built] {
        if (m_pWindow == nullptr) {
            m_pWindow = gtk_window_new(GTK_WINDOW_TOPLEVEL);
            GtkWindow* gtkWindow = GTK_WINDOW(m_pWindow);
            gtk_window_set_title(gtkWindow, "");
            gtk_window_set_role(gtkWindow, "velq-wait");
            gtk_window_set_keep_above(gtkWindow, TRUE);
            gtk_window_set_position(gtkWindow, GTK_WIN_POS_CENTER);
            // The whole window, title bar included, is 203 by 268 and never changes: fixed by equal least
            // and greatest sizes, which window managers honour for a frame that looks resizable.
            GdkGeometry size{};
            size.min_width = size.max_width = kWaitWidth;
            size.min_height = size.max_height = kWaitHeight;
            gtk_window_set_default_size(gtkWindow, kWaitWidth, kWaitHeight);
            gtk_window_set_geometry_hints(gtkWindow, nullptr, &size,
                                          static_cast<GdkWindowHints>(GDK_HINT_MIN_SIZE | GDK_HINT_MAX_SIZE));
            m_pImage = gtk_image_new();  // centres the 142 by 142 picture in the window's whole client area
            gtk_container_add(GTK_CONTAINER(m_pWindow), m_pImage);
            g_signal_connect(m_pWindow, "delete-event", G_CALLBACK(_onDelete), this);
        }
        m_hWindow = window;
        m_sessionWatch.start(window);
        gtk_widget_show_all(m_pWindow);
        gtk_window_present(GTK_WINDOW(m_pWindow));
        built.set(true);
    });
    built.wait();
    m_relay.start(window);
}

void GtkWait::image(HWND, UINT pictureId) {
    m_loop.post([this, pictureId] {
        GdkPixbuf* picture = pictureOf(pictureId);
        if (m_pImage != nullptr && picture != nullptr) {
            gtk_image_set_from_pixbuf(GTK_IMAGE(m_pImage), picture);
        }
        if (picture != nullptr) {
            g_object_unref(picture);
        }
    });
}

void GtkWait::hidden(HWND) {
    m_loop.post([this] {
        if (m_pWindow != nullptr) {
            gtk_widget_hide(m_pWindow);
        }
    });
}

void GtkWait::closed(HWND) {
    m_relay.stop();
    // Waits for the UI thread: once this returns, the close box posts nothing to the window any more.
    Reply<bool> gone;
    m_loop.post([this, &gone] {
        m_sessionWatch.stop();
        if (m_pWindow != nullptr) {
            gtk_widget_destroy(m_pWindow);
        }
        m_pWindow = nullptr;
        m_pImage = nullptr;
        m_hWindow = nullptr;
        gone.set(true);
    });
    gone.wait();
}

}  // namespace plat::ui
