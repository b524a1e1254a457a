#include "ui/gtk_kinds.h"
#include "ui/gtk_rules.h"

namespace plat::ui {

namespace {

constexpr int kLineWidth = 420;  // pixels of a line; a longer path is shortened in the middle

int pixelWidth(GtkWidget* label, std::u16string_view text) {
    PangoLayout* layout = gtk_widget_create_pango_layout(label, utf8(text).c_str());
    int width = 0;
    pango_layout_get_pixel_size(layout, &width, nullptr);
    g_object_unref(layout);
    return width;
}

GtkWidget* lineLabel() {
    GtkWidget* label = gtk_label_new("");
    gtk_label_set_xalign(GTK_LABEL(label), 0.0F);
    gtk_widget_set_size_request(label, kLineWidth, -1);
    return label;
}

}  // namespace

GtkProgress::GtkProgress(GtkLoop& loop, GtkMessageBox& boxes) : m_loop(loop), m_boxes(boxes) {}

void GtkProgress::_build() {
    m_pWindow = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    gtk_window_set_role(GTK_WINDOW(m_pWindow), "velq-progress");
    gtk_window_set_resizable(GTK_WINDOW(m_pWindow), FALSE);
    gtk_window_set_position(GTK_WINDOW(m_pWindow), GTK_WIN_POS_CENTER);
    // The dialog stands above other windows, as the program puts it on Windows.
    gtk_window_set_keep_above(GTK_WINDOW(m_pWindow), TRUE);
    GtkWidget* box = gtk_box_new(GTK_ORIENTATION_VERTICAL, 6);
    gtk_container_set_border_width(GTK_CONTAINER(box), 12);
    for (GtkWidget*& label : m_pLines) {
        label = lineLabel();
    }
    m_pBar = gtk_progress_bar_new();
    gtk_box_pack_start(GTK_BOX(box), m_pLines[0], FALSE, FALSE, 0);
    gtk_box_pack_start(GTK_BOX(box), m_pLines[1], FALSE, FALSE, 0);
    gtk_box_pack_start(GTK_BOX(box), m_pBar, FALSE, FALSE, 4);
    gtk_box_pack_start(GTK_BOX(box), m_pLines[2], FALSE, FALSE, 0);
    GtkWidget* buttons = gtk_button_box_new(GTK_ORIENTATION_HORIZONTAL);
    gtk_button_box_set_layout(GTK_BUTTON_BOX(buttons), GTK_BUTTONBOX_END);
    m_pCancel = tableButton(kTextCancel);
    gtk_container_add(GTK_CONTAINER(buttons), m_pCancel);
    gtk_box_pack_start(GTK_BOX(box), buttons, FALSE, FALSE, 0);
    gtk_container_add(GTK_CONTAINER(m_pWindow), box);
    g_signal_connect(m_pCancel, "clicked", G_CALLBACK(_onCancel), this);
    g_signal_connect(m_pWindow, "delete-event", G_CALLBACK(_onDelete), this);
    m_boxes.setOwnerWindow(GTK_WINDOW(m_pWindow));
}

void GtkProgress::_showTexts() {
    if (m_pWindow == nullptr) {
        return;  // the texts come before the dialog shows; it shows them all at its start
    }
    gtk_window_set_title(GTK_WINDOW(m_pWindow), utf8(m_szTitle).c_str());
    for (int i = 0; i < 3; ++i) {
        std::u16string text = m_bShowsCancel ? (i == 0 ? m_szCancelMsg : u"") : m_szLines[i];
        if (!m_bShowsCancel && i == 2 && !m_szTimeLeft.empty()) {
            text = m_szTimeLeft;
        }
        GtkWidget* label = m_pLines[i];
        if (m_bCompact[i] || text.size() > 200) {
            text = compactMiddle(text, kLineWidth, [label](std::u16string_view candidate) {
                return pixelWidth(label, candidate);
            });
        }
        gtk_label_set_text(GTK_LABEL(label), utf8(text).c_str());
    }
    gtk_progress_bar_set_fraction(GTK_PROGRESS_BAR(m_pBar), m_fraction);
    gtk_widget_set_sensitive(m_pCancel, m_bShowsCancel ? FALSE : TRUE);
}

void GtkProgress::_pressCancel() {
    m_bCancelled.store(true);
    m_bShowsCancel = true;
    _showTexts();
}

gboolean GtkProgress::_onDelete(GtkWidget*, GdkEvent*, gpointer self) {
    // The close box cancels like the button; the window stays until the batch stops it.
    static_cast<GtkProgress*>(self)->_pressCancel();
    return TRUE;
}

void GtkProgress::_onCancel(GtkButton*, gpointer self) {
    static_cast<GtkProgress*>(self)->_pressCancel();
}

void GtkProgress::started() {
    m_bCancelled.store(false);
    m_loop.post([this] {
        if (m_pWindow == nullptr) {
            _build();
        }
        m_bShowsCancel = false;
        m_szTimeLeft.clear();
        gtk_widget_show_all(m_pWindow);
        gtk_window_present(GTK_WINDOW(m_pWindow));
        _showTexts();
    });
}

void GtkProgress::stopped() {
    m_loop.post([this] {
        if (m_pWindow != nullptr) {
            m_boxes.setOwnerWindow(nullptr);
            gtk_widget_destroy(m_pWindow);
            m_pWindow = nullptr;
        }
    });
}

void GtkProgress::title(std::u16string_view text) {
    m_loop.post([this, copy = std::u16string(text)] {
        m_szTitle = copy;
        _showTexts();
    });
}

void GtkProgress::line(DWORD number, std::u16string_view text, bool compactPath) {
    if (number < 1 || number > 3) {
        return;
    }
    m_loop.post([this, number, compactPath, copy = std::u16string(text)] {
        m_szLines[number - 1] = copy;
        m_bCompact[number - 1] = compactPath;
        _showTexts();
    });
}

void GtkProgress::cancelMessage(std::u16string_view text) {
    m_loop.post([this, copy = std::u16string(text)] {
        m_szCancelMsg = copy;
        _showTexts();
    });
}

void GtkProgress::progress(DWORD completed, DWORD total) {
    const double fraction =
        total == 0 ? 0.0 : static_cast<double>(completed < total ? completed : total) / total;
    m_loop.post([this, fraction] {
        m_fraction = fraction;
        if (m_pBar != nullptr) {
            gtk_progress_bar_set_fraction(GTK_PROGRESS_BAR(m_pBar), m_fraction);
        }
    });
}

void GtkProgress::timeLeft(DWORD seconds) {
    m_loop.post([this, seconds] {
        m_szTimeLeft = fillText(tableText(kTextTimeLeft), {clockText(seconds)});
        _showTexts();
    });
}

}  // namespace plat::ui
